#include "core/integrations/address_based/common/ZVServiceRequest.h"

#include <strings.h>

#include "ZVDownloadCenter.h"

std::optional<std::string> ZVServiceReply::header(const std::string& name) const {
    for (const auto& [key, value] : headers)
        if (::strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    return std::nullopt;
}

std::optional<nlohmann::json> ZVServiceReply::json() const { return ZVDownloadCenter::jsonObject(body); }

std::optional<ZVXMLDocument> ZVServiceReply::xml() const { return ZVXMLDocument::parse(body); }
