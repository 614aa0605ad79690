#include "core/integrations/authentication/ZVUsernamePasswordAPITokenAuthentication.h"

#include <vector>

#include "ZVKeychainAccess.h"

namespace {
constexpr char separator = '|';

std::vector<std::string> splitAtEverySeparator(const std::string& value) {
    std::vector<std::string> pieces;
    std::string::size_type start = 0;
    for (;;) {
        const auto end = value.find(separator, start);
        pieces.push_back(value.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return pieces;
        start = end + 1;
    }
}
}  // namespace

ZVUsernamePasswordAPITokenAuthentication::ZVUsernamePasswordAPITokenAuthentication(const ZVDictionary& dictionary,
                                                                                   std::string accountInformation)
    : ZVUsernamePasswordAuthentication(dictionary, accountInformation) {
    const std::string user = username();
    if (user.empty()) return;
    const auto stored = ZVKeychainAccess::sharedAccess().password(user, accountInformation);
    if (!stored) return;
    // A "|" inside either secret is lost with what stands between the first
    // and the last piece; that is how the item has always been read.
    const auto pieces = splitAtEverySeparator(*stored);
    _APIToken = pieces.front();
    setPassword(pieces.back());
}

std::string ZVUsernamePasswordAPITokenAuthentication::APIToken() const {
    std::lock_guard guard(_fieldsLock);
    return _APIToken;
}

void ZVUsernamePasswordAPITokenAuthentication::setAPIToken(std::string token) {
    std::lock_guard guard(_fieldsLock);
    _APIToken = std::move(token);
}

void ZVUsernamePasswordAPITokenAuthentication::saveKeychainInformation() {
    ZVUsernamePasswordAuthentication::saveKeychainInformation();
    const std::string user = username();
    if (user.empty()) return;
    ZVKeychainAccess::sharedAccess().savePassword(APIToken() + separator + password(), user, accountInformation());
}
