// Makes one change of the login files through the journal, and nothing else, so that a test can end it at every system
// call. Arguments: a folder with the new content of each file below its own path, then the paths.

#include <string>

#include "tools/loginfiles/journal.h"

int main(int argc, char** argv) {
    using namespace nimbrel::logins;
    Record record;
    record.action = "enable";
    for (int index = 2; index < argc; ++index) {
        const std::string path = argv[index];
        record.changes.push_back({path, ReadState(path), ReadState(argv[1] + path)});
    }
    Journal().Apply(record, [](int) {});
}
