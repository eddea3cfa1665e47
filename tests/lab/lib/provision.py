#!/usr/bin/python3
"""Fills the databases of one domain controller of the lab.

Usage: provision.py corp|trust ADDRESS FORWARDER    the first of a forest, off line: no daemon runs
       provision.py second ADDRESS FORWARDER        one more of corp.test, from the first one, which runs

What stands in the two forests is told in tests/lab/README.md. Both sides of the forest trust are written here with the
same secrets, so that no controller has to talk to the other one.

The access lists of the sysvol share are left out: setting them needs more than a user namespace's root may do, and
nothing in the lab opens that share.
"""

import struct
import sys
import time

import ldb
import samba
import samba.provision
from samba.auth import system_session
from samba.dcerpc import drsblobs, lsa, security
from samba.ndr import ndr_pack
from samba.netcmd.main import cmd_sambatool
from samba.param import LoadParm
from samba.samdb import SamDB

PASSWORD = "Lab-Secret-1"
FORESTS = {
    "corp": {"dns": "corp.test", "netbios": "CORP", "sid": "S-1-5-21-1001-2002-3003", "other": "trust"},
    "trust": {"dns": "trust.test", "netbios": "TRUST", "sid": "S-1-5-21-4004-5005-6006", "other": "corp"},
}
COMPUTER_CLASS = "bf967a86-0de6-11d0-a285-00aa003049e2"
COUNT_OF_FOREVER = "9223372036854775807"


def base_dn(forest):
    return ",".join("DC=" + label for label in FORESTS[forest]["dns"].split("."))


def samba_tool(forwarder, *arguments):
    samba.provision.setsysvolacl = lambda *args, **kwargs: None
    status = cmd_sambatool("samba-tool")._run(
        "samba-tool", *arguments, "--dns-backend=SAMBA_INTERNAL", "--option=dns forwarder = " + forwarder,
        "--option=interfaces = lo eth0", "--option=bind interfaces only = yes", "--option=log level = 1", "--quiet")
    if status:
        sys.exit(status)


def provision(forest, address, forwarder):
    names = FORESTS[forest]
    samba_tool(forwarder, "domain", "provision", "--server-role=dc", "--realm=" + names["dns"].upper(),
               "--domain=" + names["netbios"], "--host-name=dc1", "--host-ip=" + address, "--adminpass=" + PASSWORD,
               "--use-rfc2307", "--domain-sid=" + names["sid"])


def open_database():
    parameters = LoadParm()
    parameters.load_default()
    return SamDB(url="/var/lib/samba/private/sam.ldb", session_info=system_session(), lp=parameters)


def change(database, user, **attributes):
    message = ldb.Message(ldb.Dn(database, "CN=%s,CN=Users,%s" % (user, database.domain_dn())))
    for name, value in attributes.items():
        message[name] = ldb.MessageElement(value, ldb.FLAG_MOD_REPLACE, name)
    database.modify(message)


def delegate(database, user, unit):
    """Lets a user create, change and delete the computer accounts below a unit, and nothing else."""
    sid = security_id(database, user)
    message = database.search(unit, scope=ldb.SCOPE_BASE, attrs=["nTSecurityDescriptor"])[0]
    domain_sid = security.dom_sid(database.get_domain_sid())
    descriptor = samba.ndr.ndr_unpack(security.descriptor, message["nTSecurityDescriptor"][0])
    entries = "(OA;CI;CCDC;%s;;%s)(OA;CIIO;GA;;%s;%s)" % (COMPUTER_CLASS, sid, COMPUTER_CLASS, sid)
    text = descriptor.as_sddl(domain_sid)
    head, tail = text.split("D:", 1)
    flags, separator, rest = tail.partition("(")
    wanted = security.descriptor.from_sddl(head + "D:" + flags + entries + separator + rest, domain_sid)
    update = ldb.Message(ldb.Dn(database, unit))
    update["d"] = ldb.MessageElement(ndr_pack(wanted), ldb.FLAG_MOD_REPLACE, "nTSecurityDescriptor")
    database.modify(update)


def security_id(database, user):
    found = database.search(database.domain_dn(), expression="(sAMAccountName=%s)" % user, attrs=["objectSid"])
    return str(samba.ndr.ndr_unpack(security.dom_sid, found[0]["objectSid"][0]))


def populate(database):
    """Users that differ in what a log-on finds wrong with them, and the units for hosts."""
    base = database.domain_dn()
    database.set_minPwdAge("0")
    database.set_maxPwdAge("0")
    for unit in ("OU=Hosts," + base, "OU=Sub,OU=Hosts," + base, "OU=Closed," + base):
        database.create_ou(unit)
    for user in ("joiner", "alice", "bob", "plain", "disabled", "locked", "expired", "mustchange"):
        database.newuser(user, PASSWORD, givenname=user.capitalize(), surname="Lab")
    database.newgroup("hostadmins")
    database.add_remove_group_members("hostadmins", ["alice"], add_members_operation=True)
    change(database, "administrator", accountExpires=COUNT_OF_FOREVER, pwdLastSet="-1")
    change(database, "disabled", userAccountControl="514")
    change(database, "locked", lockoutTime=str(samba.unix2nttime(int(time.time()))), badPwdCount="100")
    change(database, "expired", accountExpires=str(samba.unix2nttime(int(time.time()) - 86400)))
    change(database, "mustchange", pwdLastSet="0")
    policy = ldb.Message(ldb.Dn(database, base))
    policy["d"] = ldb.MessageElement("0", ldb.FLAG_MOD_REPLACE, "lockoutDuration")  # until an administrator unlocks
    database.modify(policy)
    delegate(database, "joiner", "OU=Hosts," + base)


def trust_secret(secret):
    text = secret.encode("utf-16-le")
    clear = drsblobs.AuthInfoClear()
    clear.size = len(text)
    clear.password = list(text)
    info = drsblobs.AuthenticationInformation()
    info.LastUpdateTime = samba.unix2nttime(int(time.time()))
    info.AuthType = lsa.TRUST_AUTH_TYPE_CLEAR
    info.AuthInfo = clear
    array = drsblobs.AuthenticationInformationArray()
    array.count = 1
    array.array = [info]
    blob = drsblobs.trustAuthInOutBlob()
    blob.count = 1
    blob.current = array
    return ndr_pack(blob)


def forest_names(names):
    """What may be reached through the trust: all names below the forest's root, and its one domain."""
    def counted(data):
        return struct.pack("<I", len(data)) + data

    def record(kind, data):
        return counted(struct.pack("<IQB", 0, samba.unix2nttime(int(time.time())), kind) + data)

    top_level_name, domain_info = 0, 2
    records = [
        record(top_level_name, counted(names["dns"].encode())),
        record(domain_info, counted(ndr_pack(security.dom_sid(names["sid"]))) + counted(names["dns"].encode()) +
               counted(names["netbios"].encode())),
    ]
    return struct.pack("<II", 1, len(records)) + b"".join(records)


def add_trust(database, forest):
    """A two-way forest trust; the secret of each direction is the same on both sides."""
    other = FORESTS[FORESTS[forest]["other"]]
    outgoing, incoming = "%s-trusts-%s" % (forest, FORESTS[forest]["other"]), "%s-trusts-%s" % (
        FORESTS[forest]["other"], forest)
    database.add({
        "dn": "CN=%s,CN=System,%s" % (other["dns"], database.domain_dn()),
        "objectClass": "trustedDomain",
        "trustPartner": other["dns"],
        "flatName": other["netbios"],
        "securityIdentifier": ndr_pack(security.dom_sid(other["sid"])),
        "trustDirection": str(lsa.LSA_TRUST_DIRECTION_INBOUND | lsa.LSA_TRUST_DIRECTION_OUTBOUND),
        "trustType": str(lsa.LSA_TRUST_TYPE_UPLEVEL),
        "trustAttributes": str(lsa.LSA_TRUST_ATTRIBUTE_FOREST_TRANSITIVE),
        "msDS-SupportedEncryptionTypes": "24",
        "trustAuthOutgoing": trust_secret(outgoing),
        "trustAuthIncoming": trust_secret(incoming),
        "msDS-TrustForestTrustInfo": forest_names(other),
    }, ["relax:0"])
    database.add({
        "dn": "CN=%s$,CN=Users,%s" % (other["netbios"], database.domain_dn()),
        "objectClass": "user",
        "sAMAccountName": other["netbios"] + "$",
        "userAccountControl": str(samba.dsdb.UF_INTERDOMAIN_TRUST_ACCOUNT),
        "clearTextPassword": incoming.encode("utf-16-le"),
    }, ["relax:0", "local_oid:%s:0" % samba.dsdb.DSDB_CONTROL_PERMIT_INTERDOMAIN_TRUST_UAC_OID])


def main():
    forest, address, forwarder = sys.argv[1:]
    if forest == "second":
        samba_tool(forwarder, "domain", "join", "corp.test", "DC", "--use-krb5-ccache=/run/join.cc")
        return
    provision(forest, address, forwarder)
    database = open_database()
    database.transaction_start()
    populate(database)
    add_trust(database, forest)
    database.transaction_commit()


main()
