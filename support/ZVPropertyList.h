#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

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

/// The same, parsing inside `bytes`, which are left undefined: a large
/// file is not held twice.
std::optional<ZVValue> readConsuming(std::string& bytes);

/// Reads the XML form of a dictionary entry by entry, handing over each key
/// and value as soon as it stands, so that one value is held at a time, with
/// the offset in `bytes` that the reading has reached (nothing before it is
/// looked at again). False
/// when the text is corrupt or not in the plain layout this program writes
/// (read() then decides); the entries handed over until then are not to be
/// used.
bool readDictionaryEntries(std::string_view bytes,
                           const std::function<void(std::string&&, ZVValue&&, std::size_t reached)>& entry);
/// As above, and when an entry's value is a dictionary, each element of the
/// array under `streamedKey` in it is handed to `element` (with the entry's
/// key) as soon as it stands, before the entry itself, which then comes
/// without that key: a large array is never held whole.
bool readDictionaryEntries(std::string_view bytes, std::string_view streamedKey,
                           const std::function<void(const std::string&, ZVValue&&, std::size_t reached)>& element,
                           const std::function<void(std::string&&, ZVValue&&, std::size_t reached)>& entry);

/// Reads a property-list file; absent when missing or corrupt.
std::optional<ZVValue> readFile(const std::string& path);
/// Writes the XML form atomically; false on failure, leaving the old file.
bool writeFile(const ZVValue& value, const std::string& path);
bool writeFile(const ZVValue& value, const std::string& path, unsigned permissions);

/// Where one entry of a dictionary file sits: the bytes of its key line and
/// of its value, up to and including the value's last line break.
struct EntryRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    bool operator==(const EntryRange&) const = default;
};
using EntryRanges = std::map<std::string, EntryRange>;

/// Writes a dictionary atomically, the same bytes as writeXML of the whole
/// dictionary would give, from two sources: the entries of `values` are
/// serialized, every other entry is copied byte for byte from the file now
/// at `path`, at the place `copiedRanges` gives (the caller makes sure that
/// the file is the one those ranges describe). A large file then costs only
/// the serializing of what changed. On success `newRanges` describes the
/// file written.
/// Where each entry sits in a dictionary file of the layout that
/// writeXML and writeDictionaryFile give; nothing for any other layout.
std::optional<EntryRanges> dictionaryEntryRanges(std::string_view bytes);

bool writeDictionaryFile(const std::string& path, unsigned permissions, const std::map<std::string, const ZVValue*>& values,
                         const EntryRanges& copiedRanges, EntryRanges& newRanges);
/// The same with entries already in their written form (dictionaryEntryXML).
/// `beforeReplacing`, when given, is told the new file's size once its bytes
/// are written and before it replaces the old one; answering false gives up.
bool writeDictionaryFileEntries(const std::string& path, unsigned permissions, const std::map<std::string, std::string>& entries,
                         const EntryRanges& copiedRanges, EntryRanges& newRanges,
                         const std::function<bool(std::uint64_t size)>& beforeReplacing = {});
/// Where a whole write takes one entry from, when it reaches it: the value,
/// given into `value` (a null value leaves the entry out); false when it
/// cannot be had, and the write gives up.
using ValueSource = std::function<bool(ZVValue& value)>;
/// The same with values that are asked for one at a time as the write
/// reaches them and serialized straight into the file: a large database is
/// never held whole, neither as values nor as text.
bool writeDictionaryFileValues(const std::string& path, unsigned permissions, const std::map<std::string, ValueSource>& sources,
                               const EntryRanges& copiedRanges, EntryRanges& newRanges,
                               const std::function<bool(std::uint64_t size)>& beforeReplacing = {});
/// Reads one entry of a dictionary file, the bytes an EntryRange gives.
std::optional<std::pair<std::string, ZVValue>> readDictionaryEntry(std::string_view entry);
/// One entry of a dictionary file as writeDictionaryFile writes it: the key
/// line and the value, up to and including the value's last line break.
std::string dictionaryEntryXML(const std::string& key, const ZVValue& value);
}  // namespace ZVPropertyList
