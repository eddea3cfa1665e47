# Every fuzz target: its name, its sources and what it links. fuzz/CMakeLists.txt makes libFuzzer programs of them,
# tests/fuzz/CMakeLists.txt ordinary ones that replay the corpora.
#
#   fuzz_target(<name> SOURCES <file>... LIBRARIES <library>... [INCLUDE <folder>...] [WRAP <function>...]
#               [CORPORA <folder>...] [EXPORTS])
#
#   INCLUDE   folders of internal headers, from the top of the sources
#   WRAP      calls of <function> in the library go to __wrap_<function>, which the target defines
#   EXPORTS   what the program exports can be found by dlsym
#   CORPORA   further folders of inputs besides fuzz/corpus/<name>, from the top of the sources

set(library nimauth_objects orbconfigstore_memory hostmgmt_memory sysnet_memory)

# The library.
fuzz_target(configuration SOURCES configuration.cc LIBRARIES ${library})
fuzz_target(configuration_write SOURCES configuration_write.cc LIBRARIES ${library})
fuzz_target(pam_policy SOURCES pam_policy_fuzzer.cc LIBRARIES ${library}
    CORPORA tests/systemconfiguration/corpus/pam)
fuzz_target(nss_configuration SOURCES nss_configuration_fuzzer.cc LIBRARIES ${library}
    CORPORA tests/systemconfiguration/corpus/nss)
fuzz_target(certificate SOURCES certificate.cc LIBRARIES ${library} INCLUDE src WRAP BIO_new PEM_read_bio_X509)
fuzz_target(provider_answers SOURCES provider_answers.cc LIBRARIES ${library} EXPORTS
    WRAP _ZN7nimbrel14authentication14OpenPluginFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_)

# The host platform.
fuzz_target(hosts_file SOURCES hosts_file.cc LIBRARIES sysnet_objects)
fuzz_target(search_domains SOURCES search_domains.cc LIBRARIES sysnet_objects INCLUDE platform/sysnet/src)
fuzz_target(network_conf SOURCES network_conf.cc LIBRARIES sysnet_objects INCLUDE platform/sysnet/src)

# The provider "ad".
set(directory LIBRARIES ad_directory INCLUDE plugins/ad/directory/src)
fuzz_target(dns_reply SOURCES dns_reply.cc ${directory})
fuzz_target(netlogon_reply SOURCES netlogon_reply.cc ${directory})
fuzz_target(sealed_channel SOURCES sealed_channel.cc ${directory})
fuzz_target(ldap_answers SOURCES ldap_answers.cc ${directory})
fuzz_target(keytab SOURCES keytab.cc ${directory})
fuzz_target(membership SOURCES membership.cc ${directory})
fuzz_target(ad_settings SOURCES ad_settings.cc ${directory})
fuzz_target(log_in_texts SOURCES log_in_texts.cc LIBRARIES ad_logins INCLUDE plugins/ad/logins/src)

# The authentication proxy: what the service reads, and what the plug-in reads.
fuzz_target(apx_request SOURCES apx_request_fuzzer.cc LIBRARIES apxd_core)
fuzz_target(apx_answer SOURCES apx_answer_fuzzer.cc LIBRARIES apxhttps_core)
fuzz_target(apxd_config SOURCES apxd_config.cc LIBRARIES apxd_core)
fuzz_target(apxd_ledger SOURCES apxd_ledger.cc LIBRARIES apxd_core)

# The tool.
fuzz_target(login_records SOURCES login_records.cc LIBRARIES loginfiles)
fuzz_target(pam_files SOURCES pam_files.cc LIBRARIES loginfiles)
fuzz_target(login_edits SOURCES login_edits.cc LIBRARIES loginfiles)
fuzz_target(unified_diff SOURCES unified_diff.cc LIBRARIES loginfiles)
find_package(nlohmann_json REQUIRED)
set(tool "${PROJECT_SOURCE_DIR}/tools/nimauthctl")
fuzz_target(tool_report
    SOURCES tool_report.cc "${tool}/report.cc" "${tool}/report_json.cc" "${tool}/report_style.cc" "${tool}/report_table.cc"
        "${tool}/report_text.cc"
    LIBRARIES ${library} nlohmann_json::nlohmann_json)
