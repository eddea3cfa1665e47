#include "plugins/ad/domain/ber.h"

#include <stdexcept>

namespace nimbrel::ad::test {
namespace {

struct Header {
    std::size_t size = 0;     // of the header itself; 0 while incomplete
    std::size_t content = 0;  // what follows it
};

Header ReadHeader(std::string_view bytes) {
    if (bytes.size() < 2) return {};
    const auto first = static_cast<unsigned char>(bytes[1]);
    if (first < 0x80) return {2, first};
    const std::size_t count = first & 0x7fU;
    if (bytes.size() < 2 + count) return {};
    std::size_t length = 0;
    for (const char byte : bytes.substr(2, count)) length = length << 8 | static_cast<unsigned char>(byte);
    return {2 + count, length};
}

}  // namespace

std::int64_t Element::Number() const {
    std::int64_t value = !content.empty() && (content[0] & 0x80) != 0 ? -1 : 0;
    for (const char byte : content) value = value * 256 + static_cast<unsigned char>(byte);
    return value;
}

std::size_t ElementSize(std::string_view bytes) {
    const Header header = ReadHeader(bytes);
    return header.size == 0 ? 0 : header.size + header.content;
}

Element TakeElement(std::string_view& bytes) {
    const Header header = ReadHeader(bytes);
    if (header.size == 0 || bytes.size() < header.size + header.content) throw std::runtime_error("a cut message");
    const Element element = {static_cast<unsigned char>(bytes[0]), bytes.substr(header.size, header.content)};
    bytes.remove_prefix(header.size + header.content);
    return element;
}

std::string MakeElement(unsigned char tag, std::string_view content) {
    std::string length;
    for (std::size_t rest = content.size(); rest > 0; rest >>= 8)
        length.insert(length.begin(), static_cast<char>(rest));
    if (content.size() < 0x80) {
        length.assign(1, static_cast<char>(content.size()));
    } else {
        length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
    }
    return std::string(1, static_cast<char>(tag)) + length + std::string(content);
}

std::string MakeNumber(unsigned char tag, std::int64_t value) {
    std::string content;
    for (int shift = 24; shift >= 0; shift -= 8) content += static_cast<char>(value >> shift);
    while (content.size() > 1 && content[0] == 0 && (content[1] & 0x80) == 0) content.erase(0, 1);
    return MakeElement(tag, content);
}

}  // namespace nimbrel::ad::test
