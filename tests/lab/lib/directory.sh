# What the directory itself says and has done to it, by other tools than ours. Sourced inside the lab.
#
#   directory_search FILTER [ATTRIBUTE]...   LDIF of corp.test, with the administrator's rights
#   directory_value FILTER ATTRIBUTE         the first value, or nothing
#   directory_change <<<LDIF                 adds, changes, deletes
#   directory_delete FILTER                  what the filter finds
#   account_of NODE                          the distinguished name of a host's account, or nothing

administrator_ticket=/mnt/lab/administrator.cc

with_ticket() { in_box dc1 env KRB5CCNAME="$administrator_ticket" "$@"; }

directory_log_on() {
    in_box dc1 kinit -l 10h -c "$administrator_ticket" administrator@CORP.TEST <<<Lab-Secret-1 >/dev/null
}

directory_search() {
    with_ticket ldapsearch -Q -LLL -o ldif-wrap=no -Y GSSAPI -N -H ldap://dc1.corp.test -b DC=corp,DC=test "$@" |
        grep -v '^# refldap' | sed '/^$/d'
}

directory_value() { directory_search "$1" "$2" | sed -n "s/^$2: //p" | head -n 1; }
directory_change() { with_ticket ldapmodify -Q -Y GSSAPI -N -H ldap://dc1.corp.test >/dev/null; }
account_of() { directory_value "(sAMAccountName=${1^^}\$)" dn; }

directory_delete() {
    local dn
    dn=$(directory_value "$1" dn)
    [ -z "$dn" ] || with_ticket ldapdelete -Q -Y GSSAPI -N -H ldap://dc1.corp.test "$dn"
}

make_account() {  # make_account NODE CONTAINER PASSWORD: prepared by an administrator
    directory_change <<END
dn: CN=${1^^},$2,DC=corp,DC=test
changetype: add
objectClass: computer
sAMAccountName: ${1^^}\$
userAccountControl: 4096
dNSHostName: $1.corp.test
unicodePwd:: $(quoted_password "$3")
END
}

quoted_password() { printf '"%s"' "$1" | iconv -t UTF-16LE | base64 -w0; }

account_disable() {
    directory_change <<END
dn: $(account_of "$1")
changetype: modify
replace: userAccountControl
userAccountControl: 4098
END
}

account_reset_password() {  # as an administrator would: the host is not told
    directory_change <<END
dn: $(account_of "$1")
changetype: modify
replace: unicodePwd
unicodePwd:: $(quoted_password Another-Secret-2)
END
}
