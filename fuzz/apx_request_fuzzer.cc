// Whatever a client sends as its body must be answered, with a JSON object and a known status.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "apx/memory_back_end.h"
#include "services/apxd/handler.h"
#include "support/temporary_folder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using namespace nimbrel::apxd;

struct Service {
    Service() {
        config.domain = "corp.test";
        config.allowed = {*Network::Parse("::/0")};
    }
    const TemporaryFolder folder;
    Config config;
    test::MemoryBackEnd backEnd;
    Ledger ledger{folder / "ledger"};
    Handler handler{config, backEnd, ledger};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service service;
    Request request;
    request.method = "POST";
    request.path = "/v1/computers";
    request.client = Address::Parse("192.0.2.10");
    request.body.assign(reinterpret_cast<const char*>(data), size);
    service.backEnd.accounts.clear();
    const Answer answer = service.handler.Handle(request);
    const std::string& body = answer.body.Text();
    const bool granted = answer.status == 0;
    if (body.size() < 3 || body.front() != '{' || body[body.size() - 2] != '}') std::abort();
    if (granted != (service.backEnd.accounts.size() == 1) || granted != (answer.httpStatus < 300)) std::abort();
    if (granted && !nimbrel::kit::IsComputerName(service.backEnd.accounts.begin()->first)) std::abort();
    if (answer.status == kInternalError) std::abort();
    return 0;
}
