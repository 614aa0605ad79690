#include "core/integrations/ZVIntegrationSetting.h"

#include "ZVLocalization.h"

ZVValue ZVIntegrationSetting::initialValue() const {
    if (defaultValue) return *defaultValue;
    switch (kind) {
        case Kind::flag: return ZVValue(false);
        case Kind::number: return ZVValue(0.0);
        case Kind::choice: return ZVValue(choices.empty() ? std::int64_t{0} : choices.front().value);
        case Kind::text: return ZVValue(std::string());
    }
    return {};
}

std::optional<ZVValue> ZVIntegrationSetting::accepted(const ZVValue& value) const {
    switch (kind) {
        case Kind::flag:
            if (auto flag = value.boolean()) return ZVValue(*flag);
            break;
        case Kind::number:
            if (value.isString() || value.isNull()) break;
            if (auto number = value.real()) return ZVValue(*number);
            break;
        case Kind::choice:
            // A stored number outside the list is kept: the service reads it
            // as it always has.
            if (value.isString() || value.isNull()) break;
            if (auto number = value.integer()) return ZVValue(*number);
            break;
        case Kind::text:
            if (const std::string* text = value.string()) return ZVValue(*text);
            break;
    }
    return std::nullopt;
}

ZVIntegrationSetting ZVIntegrationSetting::credentialSwitch(const char* key, const char* label, const char* controlName) {
    return {key, Kind::flag, label, controlName, std::nullopt, {}, true};
}

ZVIntegrationSetting ZVIntegrationSetting::synchronization(const char* key, const char* firstLevel, const char* deeper) {
    return {key, Kind::choice, ZVLocalizable("Synchronize"), "synchronizationTypePopUp", std::nullopt,
            {{0, firstLevel}, {1, deeper}}};
}
