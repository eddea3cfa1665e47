// Name-service switch configurations written as text, byte for byte and flush by flush.

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "systemconfiguration/nss_configuration.h"
#include "systemconfiguration/stream_buffers.h"
#include "systemconfiguration/thrown.h"

namespace {

using namespace std::string_literals;
using SystemConfiguration::InvalidDatabaseException;
using SystemConfiguration::NSSConfiguration;
using SystemConfiguration::NSSDatabase;
using SystemConfiguration::NSSService;

using Texts = std::vector<std::string>;

NSSService Service(const std::string& module, std::list<std::string> parameters = {}) {
    NSSService service(module);
    service.parameters() = std::move(parameters);
    return service;
}

template <typename Value>
std::string Written(const Value& value) {
    std::ostringstream stream;
    stream << value;
    EXPECT_TRUE(stream.good());
    return stream.str();
}

std::string Rewritten(const std::string& text) {
    std::istringstream stream(text);
    NSSConfiguration configuration;
    stream >> configuration;
    return Written(configuration);
}

TEST(NssWriter, ServiceHasItsCriteriaInBrackets) {
    EXPECT_EQ(Written(Service("files")), "files");
    EXPECT_EQ(Written(Service("files", {"NOTFOUND=return"})), "files [NOTFOUND=return]");
    EXPECT_EQ(Written(Service("files", {"a", "b", ""})), "files [a b ]");
    EXPECT_EQ(Written(Service("", {""})), " []");
}

TEST(NssWriter, OneFlushedLinePerDatabaseInOrderOfValue) {
    NSSConfiguration configuration;
    configuration[NSSDatabase::Aliases].push_back(Service("files"));
    configuration[NSSDatabase::Hosts].push_back(Service("files", {"NOTFOUND=return"}));
    configuration[NSSDatabase::Hosts].push_back(Service("dns"));
    configuration[NSSDatabase::Shadow];
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream << configuration;
    EXPECT_EQ(buffer.Flushed(), (Texts{"shadow:\n", "hosts: files [NOTFOUND=return] dns\n", "aliases: files\n"}));
    EXPECT_EQ(buffer.Text(), "shadow:\nhosts: files [NOTFOUND=return] dns\naliases: files\n");
}

TEST(NssWriter, EmptyConfigurationIsNothing) { EXPECT_EQ(Written(NSSConfiguration()), ""); }

TEST(NssWriter, ReadLinesAreSortedByDatabase) {
    EXPECT_EQ(Rewritten("passwd: files\ngroup: files\n"), "passwd: files\ngroup: files\n");
    EXPECT_EQ(Rewritten("# note\ngroup:   files   sss\n\npasswd:\tfiles\nsudoers: files\n"),
              "passwd: files\ngroup: files sss\n");
    EXPECT_EQ(Rewritten("hosts: files [A=b  C=d] dns\n"), "hosts: files [A=b C=d]\n");
}

TEST(NssWriter, LinesBeforeANamelessDatabaseAreWritten) {
    NSSConfiguration configuration;
    configuration[NSSDatabase::Aliases].push_back(Service("files"));
    configuration[static_cast<NSSDatabase::Database>(16)].push_back(Service("files"));
    configuration[static_cast<NSSDatabase::Database>(99)];
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    EXPECT_EQ(Thrown<InvalidDatabaseException>([&] { stream << configuration; }), ": ");
    EXPECT_EQ(buffer.Text(), "aliases: files\n");
    EXPECT_TRUE(stream.good());
}

TEST(NssWriter, WidthPadsTheFirstWordAlone) {
    std::ostringstream stream;
    stream << std::setw(8) << std::setfill('.') << Service("files", {"a"});
    EXPECT_EQ(stream.str(), "...files [a]");
    stream.str("");
    NSSConfiguration configuration;
    configuration[NSSDatabase::Hosts].push_back(Service("files"));
    configuration[NSSDatabase::Rpc].push_back(Service("db"));
    stream << std::setw(8) << configuration;
    EXPECT_EQ(stream.str(), "...hosts: files\nrpc: db\n");
}

TEST(NssWriter, UnitbufChangesNoByte) {
    NSSConfiguration configuration;
    configuration[NSSDatabase::Hosts].push_back(Service("files", {"a", "b"}));
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream << std::unitbuf << configuration;
    EXPECT_EQ(buffer.Text(), "hosts: files [a b]\n");
}

TEST(NssWriter, FailedStreamTakesNothing) {
    NSSConfiguration configuration;
    configuration[NSSDatabase::Hosts].push_back(Service("files"));
    RecordingOutput buffer;
    std::ostream stream(&buffer);
    stream.setstate(std::ios::failbit);
    stream << configuration;
    EXPECT_EQ(buffer.Text(), "");
    EXPECT_EQ(stream.rdstate(), std::ios::failbit);
}

}  // namespace
