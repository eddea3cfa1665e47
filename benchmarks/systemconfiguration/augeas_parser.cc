#include <augeas.h>

#include "benchmarks/systemconfiguration/contenders.h"

struct AugeasParser::Handle {
    augeas* tree;
    std::string lens;
};

namespace {

std::string TextPath(std::size_t index) { return "/text" + std::to_string(index); }
std::string TreePath(std::size_t index) { return "/tree" + std::to_string(index); }

}  // namespace

// No file of the host is loaded.
AugeasParser::AugeasParser(const std::string& lens)
    : _handle(std::make_unique<Handle>(
          Handle{aug_init("/nonexistent", nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD), lens + ".lns"})) {
    Expect(_handle->tree != nullptr);
    // Naming the lens in a transform loads its module.
    const std::string transform = "/augeas/load/" + lens;
    Expect(aug_set(_handle->tree, (transform + "/lens").c_str(), ("@" + lens).c_str()) == 0);
    Expect(aug_set(_handle->tree, (transform + "/incl").c_str(), "/none") == 0);
    Expect(aug_load(_handle->tree) == 0);
}

AugeasParser::~AugeasParser() { aug_close(_handle->tree); }

void AugeasParser::Put(std::size_t index, const std::string& text) {
    Expect(aug_set(_handle->tree, TextPath(index).c_str(), text.c_str()) == 0);
}

void AugeasParser::Parse(std::size_t index) {
    Keep(index);
    Expect(aug_rm(_handle->tree, TreePath(index).c_str()) > 1);
}

void AugeasParser::Keep(std::size_t index) {
    const std::string tree = TreePath(index);
    Expect(aug_text_store(_handle->tree, _handle->lens.c_str(), TextPath(index).c_str(), tree.c_str()) == 0);
}

void AugeasParser::Write(std::size_t index) {
    Expect(aug_text_retrieve(_handle->tree, _handle->lens.c_str(), TextPath(index).c_str(), TreePath(index).c_str(),
                             "/written") == 0);
}
