#pragma once

#include <any>
#include <memory>
#include <string>
#include <utility>

#include "ZVValue.h"

/// One posted notification: its name, the object it is about (often a
/// project or an account, held as a shared pointer, or nothing) and an
/// optional dictionary of details.
class ZVNotification {
public:
    explicit ZVNotification(std::string name, std::any object = {}, ZVDictionary userInfo = {})
        : _name(std::move(name)), _object(std::move(object)), _userInfo(std::move(userInfo)) {}

    const std::string& name() const { return _name; }
    const std::any& object() const { return _object; }
    const ZVDictionary& userInfo() const { return _userInfo; }

    /// The object when it was posted as a std::shared_ptr<T>, else nullptr.
    template <typename T>
    std::shared_ptr<T> objectAs() const {
        if (const auto* pointer = std::any_cast<std::shared_ptr<T>>(&_object)) return *pointer;
        return nullptr;
    }

private:
    std::string _name;
    std::any _object;
    ZVDictionary _userInfo;
};
