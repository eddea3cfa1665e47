#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

#include "tools/nimauthctl/questions.h"
#include "tools/nimauthctl/standard_streams.h"
#include "tools/nimauthctl/tool.h"

int main(int argc, char** argv) {
    using namespace nimbrel::nimauthctl;
    GuardStandardStreams();
    umask(022);  // for the programs that it runs, too: what they make for the log-ins is for root alone to write
    int status = 1;
    try {
        status = RunTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
    } catch (const std::exception& error) {
        WriteError(std::string("error: ") + error.what() + '\n');
    }
    // A provider call that hangs must not keep the process, nor meet destroyed objects when it ends after all.
    if (WorkStillRuns()) _exit(status);
    return status;
}
