#include "core/integrations/address_based/common/ZVServiceRequest.h"

#include "ZVDownloadCenter.h"

std::optional<nlohmann::json> ZVServiceReply::json() const { return ZVDownloadCenter::jsonObject(body); }

std::optional<ZVXMLDocument> ZVServiceReply::xml() const { return ZVXMLDocument::parse(body); }
