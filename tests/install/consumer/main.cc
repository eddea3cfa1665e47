// A management agent in miniature, built against the installed library alone. It prints the stores and which is active.

#include <iostream>

#include "authentication/directory_config_store.h"
#include "authentication/directory_store.h"
#include "authentication/store_factory.h"

using nimbrel::authentication::AuthenticationStoreFactory;
using nimbrel::authentication::Singleton;

int main() {
    AuthenticationStoreFactory& factory = *Singleton<AuthenticationStoreFactory>::_instance;
    for (const std::string& name : factory.GetRegisteredStores()) {
        std::cout << name << (factory.CreateInstance(name)->IsActive() ? ": active\n" : ": inactive\n");
    }
    try {
        std::cout << nimbrel::authentication::ActiveDirectoryConfigStore().GetDomainName() << '\n';
    } catch (const nimbrel::authentication::ConfigurationError& error) {
        std::cout << error.what() << '\n';
    }
}
