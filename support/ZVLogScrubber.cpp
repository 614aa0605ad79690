#include "ZVLogScrubber.h"

#include <regex>

namespace ZVLogScrubber {

std::string scrub(const std::string& text) {
    static const std::regex header(R"(((?:proxy-)?authorization|x-api-key|api-key|x-auth-token|cookie|set-cookie)(\s*[:=]\s*)[^\r\n]*)",
                                   std::regex::icase);
    static const std::regex jsonField(
        R"re("([A-Za-z_]*(?:password|passwd|token|secret|api_?key|apikey|code)[A-Za-z_]*)"(\s*:\s*)"(?:[^"\\]|\\.)*")re",
        std::regex::icase);
    static const std::regex pair(
        R"(([A-Za-z_]*(?:password|passwd|token|secret|api_?key|apikey)[A-Za-z_]*)(=)[^&\s"']*)", std::regex::icase);
    static const std::regex userInfo(R"((://[^/\s:@]+:)[^@/\s]+@)");
    std::string result = std::regex_replace(text, header, "$1$2<hidden>");
    result = std::regex_replace(result, jsonField, "\"$1\"$2\"<hidden>\"");
    result = std::regex_replace(result, pair, "$1$2<hidden>");
    result = std::regex_replace(result, userInfo, "$1<hidden>@");
    return result;
}

}  // namespace ZVLogScrubber
