#pragma once

#include <optional>
#include <string>

#include "ZVValue.h"

/// Property-list serialization: XML property lists are read and written
/// (the format of the database and the preferences), binary ones are read.
/// Corrupt input reads as absent. Dates are written in whole seconds (UTC),
/// as the XML form allows.
namespace ZVPropertyList {
/// Parses an XML or binary property list.
std::optional<ZVValue> read(const std::string& bytes);
/// The XML property-list form of the value; a null value is written as an
/// empty string, since property lists have no null.
std::string writeXML(const ZVValue& value);

/// Reads a property-list file; absent when missing or corrupt.
std::optional<ZVValue> readFile(const std::string& path);
/// Writes the XML form atomically; false on failure, leaving the old file.
bool writeFile(const ZVValue& value, const std::string& path);
bool writeFile(const ZVValue& value, const std::string& path, unsigned permissions);
}  // namespace ZVPropertyList
