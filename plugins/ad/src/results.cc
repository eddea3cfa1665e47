#include "results.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace nimbrel::ad {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
using Block = std::unique_ptr<void, Free>;

Block Allocate(std::size_t size) {
    Block block(std::malloc(size));
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

// Copies texts one after the other into the rest of a block.
class TextArea {
 public:
    explicit TextArea(void* start) : _next(static_cast<char*>(start)) {}

    char* Add(const std::string& text) {
        char* copy = _next;
        std::memcpy(copy, text.c_str(), text.size() + 1);
        _next += text.size() + 1;
        return copy;
    }

 private:
    char* _next;
};

Block CopyText(const std::string& text) {
    Block block = Allocate(text.size() + 1);
    TextArea(block.get()).Add(text);
    return block;
}

}  // namespace

extern "C" void ReleaseResult(void* result) { std::free(result); }

void ReturnText(const std::string& text, char** result, NimauthRelease* release) {
    *result = static_cast<char*>(CopyText(text).release());
    *release = ReleaseResult;
}

void ReturnTexts(const std::vector<std::string>& texts, char*** result, NimauthRelease* release) {
    std::size_t size = (texts.size() + 1) * sizeof(char*);
    for (const auto& text : texts) {
        size += text.size() + 1;
    }
    Block block = Allocate(size);
    auto* pointers = static_cast<char**>(block.get());
    TextArea area(pointers + texts.size() + 1);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        pointers[i] = area.Add(texts[i]);
    }
    pointers[texts.size()] = nullptr;
    *result = static_cast<char**>(block.release());
    *release = ReleaseResult;
}

void ReturnDomains(const std::vector<DomainNames>& domains, NimauthDomainRecord*** result, NimauthRelease* release) {
    std::size_t size = (domains.size() + 1) * sizeof(void*) + domains.size() * sizeof(NimauthDomainRecord);
    for (const auto& domain : domains) {
        size += domain.dnsName.size() + domain.netbiosName.size() + 2;
    }
    Block block = Allocate(size);
    auto* pointers = static_cast<NimauthDomainRecord**>(block.get());
    void* afterPointers = pointers + domains.size() + 1;
    auto* records = static_cast<NimauthDomainRecord*>(afterPointers);
    TextArea area(records + domains.size());
    for (std::size_t i = 0; i < domains.size(); ++i) {
        records[i] = {area.Add(domains[i].dnsName), area.Add(domains[i].netbiosName)};
        pointers[i] = &records[i];
    }
    pointers[domains.size()] = nullptr;
    *result = static_cast<NimauthDomainRecord**>(block.release());
    *release = ReleaseResult;
}

void ReturnDomain(const DomainNames& domain, NimauthDomainRecord* result, NimauthRelease* release) {
    Block dnsName = CopyText(domain.dnsName);
    Block netbiosName = CopyText(domain.netbiosName);
    result->dnsName = static_cast<char*>(dnsName.release());
    result->netbiosName = static_cast<char*>(netbiosName.release());
    *release = ReleaseResult;
}

}  // namespace nimbrel::ad
