// Lines of PAM files and what is to be read from them: by our reader (pam_text_test.cc), and by libpam itself
// (tests/system/logins/libpam_test.cc), so that the table cannot tell anything else than libpam does.

#ifndef TESTS_LOGINFILES_PAM_LINES_H_
#define TESTS_LOGINFILES_PAM_LINES_H_

#include <string>

#include "tools/loginfiles/pam_text.h"

namespace nimbrel::testing {

// A file with one rule of "auth": x.so.
inline constexpr char kIncludedFile[] = "/tmp/included";

// `shown`: "type control module|argument ", "-" before what may be missing; "@file" for an include, "?" for what cannot
// be read.
struct PamLinesRow {
    std::string text;
    std::string shown;
    bool isRefused = false;  // by libpam, for reasons that are not the reader's
};

inline std::string Shown(const std::string& text) {
    using nimbrel::logins::PamLine;
    std::string shown;
    for (const PamLine& line : nimbrel::logins::ParsePam(text)) {
        if (line.kind == PamLine::Kind::Unreadable) shown += "?";
        if (line.kind == PamLine::Kind::Include) shown += '@' + line.module;
        if (line.kind != PamLine::Kind::Rule) continue;
        shown += (line.optional ? "-" : "") + line.type + ' ' + line.control + ' ' + line.module;
        for (const std::string& argument : line.arguments) shown += '|' + argument;
    }
    return shown;
}

inline const PamLinesRow kPamLines[] = {
    {"auth required a.so", "auth required a.so"},
    {"\tAUTH\tRequired\ta.so\tX\n", "auth required a.so|X"},
    {"-Password [success=ok  default=ignore] a.so", "-password [success=ok  default=ignore] a.so"},
    {"auth [Success=ok] a.so", "auth [Success=ok] a.so", true},
    {"account [a]b.so c", "account a b.so|c", true},
    {"auth [required] a.so", "auth required a.so"},
    {"auth [] a.so", "auth [] a.so", true},
    {"auth [Required b] a.so", "auth [Required b] a.so", true},
    {"[auth] required a.so", "auth required a.so"},
    {"[-auth] required a.so", "-auth required a.so"},
    {"-[auth] required a.so", "?"},
    {"auth required [a.so] [b]", "auth required a.so|[b]"},
    {"auth required []", "?"},
    {"auth required [a\\].so] b", "auth required a].so|b"},
    {"auth required [\\]\\]a.so] b", "auth required ]]a.so|b"},
    {"auth required [\\a\\]\\] b] c", "auth required \\a]] b|c"},
    {"auth success=ok a.so", "auth success=ok a.so"},
    {"auth [success = ok] a.so", "auth [success = ok] a.so"},
    {"auth required a.so [b c] d[e f]", "auth required a.so|[b c]|d[e|f]"},
    {"auth required a.so [b]c []d", "auth required a.so|[b]|c|[]|d"},
    {"auth required a.so [b\\] c] d", "auth required a.so|[b\\] c]|d"},
    {"auth required a.so [b\\\\] c] d\\]", "auth required a.so|[b\\\\] c]|d\\]"},
    {"auth required a.so [d", "auth required a.so|[d"},
    {"auth [a b", "?"},
    {"auth required a.so # b\n", "auth required a.so"},
    {"auth required a.so b#c d\n", "auth required a.so|b"},
    {"auth required # a.so\n", "?"},
    {"auth required \\\na.so \\ \n b", "auth required a.so|b"},
    {"auth required a.so\\\nb", "auth required a.so|b"},
    {"auth required a.so \\b c", "auth required a.so|\\b|c"},
    {"# c \\\nauth required a.so\n", "auth required a.so"},
    // Comments and blank lines do not end what a '\' has begun.
    {"auth required \\\n# c\na.so\n", "auth required a.so"},
    {"auth required \\\n\n \t\n# c \\\na.so\n", "auth required a.so"},
    {"\\\nauth required a.so\n", "auth required a.so"},
    // In front of a comment it is a word.
    {"auth required a.so \\ # c\nauth required b.so\n", "auth required a.so|\\auth required b.so"},
    // With nothing behind it the service is refused.
    {"auth required a.so \\", "?"},
    {"auth required a.so\\\n", "?"},
    {"auth required a.so \\\n\n# c\n", "?"},
    {"\\\n\\\n", "?"},
    // A carriage return is no blank.
    {"auth required a.so b\r\n", "auth required a.so|b\r"},
    {"auth required a.so b \\\r\n", "auth required a.so|b|\\\r"},
    {"\r\n", "?"},
    {"# c\r\nauth required a.so\n", "auth required a.so"},
    {"auth\frequired a.so\n", "?"},
    {"auth required a.so b\fc \v\n", "auth required a.so|b\fc|\v"},
    {"@include /tmp/included", "@/tmp/included"},
    {" @INCLUDE [/tmp/included] # y\n", "@/tmp/included"},
    {"-@include /tmp/included y\n", "@/tmp/included"},
    {"auth INCLUDE /tmp/included y\n", "auth include /tmp/included|y"},
    {"-auth [include] /tmp/included\n", "-auth include /tmp/included"},
    {"auth substack /tmp/included\n", "auth substack /tmp/included"},
    {"@includes x", "?"},
    {"--auth required a.so", "?"},
    {"-", "?"},
    {"auth", "?"},
    {"account required", "?"},
    {"bogus required a.so", "?"},
    {"auth required a.so " + std::string(2000, 'b'), "?"},
    {"auth required a.so # " + std::string(2000, 'b'), "?"},
    {"# " + std::string(2000, 'b') + "\nauth required a.so\n", "?auth required a.so"},
    {"auth required a.so \\\n" + std::string(900, 'b') + " \\\n" + std::string(900, 'c'), "?"},
    {" \t\n\n", ""},
    {"", ""},
};

}  // namespace nimbrel::testing

#endif  // TESTS_LOGINFILES_PAM_LINES_H_
