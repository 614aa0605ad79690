#include "ZVLogScrubber.h"

#include <regex>

namespace ZVLogScrubber {

std::string scrub(const std::string& text, bool endIsCut) {
    static const std::regex header(R"(((?:proxy-)?authorization|x-api-key|api-key|x-auth-token|cookie|set-cookie)(\s*[:=]\s*)[^\r\n]*)",
                                   std::regex::icase);
    // The closing quote is optional: a value that a cut has left open is hidden to its end.
    static const std::regex jsonField(
        R"re("([A-Za-z_]*(?:password|passwd|token|secret|api_?key|apikey|code)[A-Za-z_]*)"(\s*:\s*)"(?:[^"\\]|\\.)*\\?"?)re",
        std::regex::icase);
    // The name begins at the start or after a character that cannot be in
    // it: tried inside a long word, the pattern would take time squared.
    static const std::regex pair(
        R"((^|[^A-Za-z_])([A-Za-z_]*(?:password|passwd|token|secret|api_?key|apikey)[A-Za-z_]*)(=)[^&\s"']*)",
        std::regex::icase);
    static const std::regex userInfo(R"((://[^/\s:@]+:)[^@/\s]+@)");
    // A URL's password whose "@" fell behind the cut; a port at the cut end
    // of a line is hidden with it, which costs nothing.
    static const std::regex cutUserInfo(R"((://[^/\s:@]+:)[^@/\s]*$)");
    std::string result = std::regex_replace(text, header, "$1$2<hidden>");
    result = std::regex_replace(result, jsonField, "\"$1\"$2\"<hidden>\"");
    result = std::regex_replace(result, pair, "$1$2$3<hidden>");
    result = std::regex_replace(result, userInfo, "$1<hidden>@");
    if (endIsCut) result = std::regex_replace(result, cutUserInfo, "$1<hidden>");
    return result;
}

}  // namespace ZVLogScrubber
