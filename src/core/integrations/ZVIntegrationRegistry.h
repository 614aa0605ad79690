#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "ZVValue.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/ZVIntegrationServiceInfo.h"

/// A class of account that can be made: its stored name, its facts and its
/// two constructions.
struct ZVIntegrationClass {
    std::string className;
    std::string integrationIdentifier;
    std::string integrationName;
    std::function<std::shared_ptr<ZVIntegration>()> makeNew;
    std::function<std::shared_ptr<ZVIntegration>(const ZVDictionary&)> makeWithDictionary;

    template <class T>
    static ZVIntegrationClass of(std::string className, std::string identifier, std::string name) {
        return {std::move(className), std::move(identifier), std::move(name),
                [] { return std::shared_ptr<ZVIntegration>(ZVIntegration::makeNew<T>()); },
                [](const ZVDictionary& d) { return std::shared_ptr<ZVIntegration>(ZVIntegration::makeWithDictionary<T>(d)); }};
    }
};

/// The table of all services, one row each with its facts and, for a built
/// service, its maker; written out in ZVIntegrationRegistry.cpp, top to
/// bottom. Nothing registers itself.
class ZVIntegrationRegistry {
public:
    /// Every service of the table, built or not, in the table's order.
    static const std::vector<ZVIntegrationServiceInfo>& services();
    /// The row of that stored class name, or nullptr.
    static const ZVIntegrationServiceInfo* serviceForClassName(std::string_view className);
    /// The row whose maker makes accounts of that class, or nullptr.
    static const ZVIntegrationServiceInfo* serviceForType(const std::type_info& type);

    /// The built account classes, in the list's order.
    static std::vector<ZVIntegrationClass> integrationClasses();
    /// The built class of that stored name (already cleaned of old prefixes), or nothing.
    static std::optional<ZVIntegrationClass> classNamed(std::string_view className);
    /// The classes the user can choose from, sorted by integrationName
    /// ignoring case: neither the local account nor the intermediate classes.
    static std::vector<ZVIntegrationClass> availableIntegrationClasses();

    /// A stored class name as it is looked up: without a leading
    /// "NSKVONotifying_", and "KD..." read as "Norvo.ZV...".
    static std::string normalizedClassName(std::string storedName);

    /// Adds a class for the lifetime of the object; tests use it for test
    /// doubles. Not for production code.
    class ScopedTestClass {
    public:
        explicit ScopedTestClass(ZVIntegrationClass integrationClass);
        ~ScopedTestClass();
        ScopedTestClass(const ScopedTestClass&) = delete;
        ScopedTestClass& operator=(const ScopedTestClass&) = delete;

    private:
        std::string _className;
    };
};
