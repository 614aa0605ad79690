#include "core/integrations/authentication/ZVOAuth2Authentication.h"

namespace {
constexpr const char* codeKey = "KDCode";
}

ZVOAuth2Authentication::ZVOAuth2Authentication(const ZVDictionary& dictionary, std::string accountInformation)
    : ZVAuthentication(dictionary, std::move(accountInformation)), _code(ZVOptionalString(dictionary, codeKey)) {}

std::optional<std::string> ZVOAuth2Authentication::code() const {
    std::lock_guard guard(_fieldsLock);
    return _code;
}

void ZVOAuth2Authentication::setCode(std::optional<std::string> code) {
    std::lock_guard guard(_fieldsLock);
    _code = std::move(code);
}

ZVDictionary ZVOAuth2Authentication::dictionaryRepresentation() {
    ZVDictionary dictionary;
    if (auto value = code()) dictionary[codeKey] = *value;
    return dictionary;
}
