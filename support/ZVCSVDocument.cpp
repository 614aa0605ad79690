#include "ZVCSVDocument.h"

#include "ZVHelpers.h"
#include "ZVPaths.h"

namespace {

bool needsQuotes(std::string_view field) {
    for (const char c : field)
        if (c == ',' || c == '"' || c == '\r' || c == '\n') return true;
    return false;
}

void appendEscapedField(std::string& out, std::string_view field) {
    if (!needsQuotes(field)) {
        out += field;
        return;
    }
    out += '"';
    for (const char c : field) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

}  // namespace

ZVCSVDocument::ZVCSVDocument(std::vector<std::string> columns) : _columns(std::move(columns)) {}

void ZVCSVDocument::addRow(Row row) { _rows.push_back(std::move(row)); }

std::string ZVCSVDocument::escapedField(const std::string& field) {
    std::string quoted;
    appendEscapedField(quoted, field);
    return quoted;
}

void ZVCSVDocument::appendRecord(std::string& out, std::initializer_list<std::string_view> fields) {
    bool first = true;
    for (const std::string_view field : fields) {
        if (!first) out += ',';
        first = false;
        appendEscapedField(out, field);
    }
    out += "\r\n";
}

std::string ZVCSVDocument::stringValue() const {
    std::string out;
    auto appendFields = [&](const std::vector<std::string>& fields) {
        for (size_t i = 0; i < fields.size(); ++i) {
            if (i > 0) out += ',';
            out += escapedField(fields[i]);
        }
        out += "\r\n";
    };
    appendFields(_columns);
    for (const Row& row : _rows) {
        std::vector<std::string> fields;
        fields.reserve(_columns.size());
        for (const auto& column : _columns) {
            auto it = row.find(column);
            if (it == row.end()) {
                fields.emplace_back();
            } else if (const auto* date = std::get_if<ZVDate>(&it->second)) {
                fields.push_back(ZVISO8601String(*date));
            } else {
                fields.push_back(std::get<std::string>(it->second));
            }
        }
        appendFields(fields);
    }
    return out;
}

bool ZVCSVDocument::write(const std::string& path) const { return ZVPaths::writeFileAtomically(path, stringValue()); }

std::optional<ZVCSVDocument> ZVCSVDocument::parse(const std::string& text) {
    std::vector<std::vector<std::string>> records;
    std::vector<std::string> record;
    std::string field;
    bool quoted = false;
    bool fieldStarted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (quoted) {
            if (c == '"') {
                if (i + 1 < text.size() && text[i + 1] == '"') {
                    field += '"';
                    ++i;
                } else {
                    quoted = false;
                }
            } else {
                field += c;
            }
        } else if (c == '"' && field.empty()) {
            quoted = true;
            fieldStarted = true;
        } else if (c == ',') {
            record.push_back(std::move(field));
            field.clear();
            fieldStarted = true;
        } else if (c == '\r' || c == '\n') {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            record.push_back(std::move(field));
            field.clear();
            records.push_back(std::move(record));
            record.clear();
            fieldStarted = false;
        } else {
            field += c;
            fieldStarted = true;
        }
    }
    if (quoted) return std::nullopt;
    if (fieldStarted || !field.empty()) {
        record.push_back(std::move(field));
        records.push_back(std::move(record));
    }
    if (records.empty()) return std::nullopt;
    ZVCSVDocument document(records.front());
    for (size_t r = 1; r < records.size(); ++r) {
        Row row;
        for (size_t c = 0; c < records[r].size() && c < document._columns.size(); ++c) {
            if (!records[r][c].empty()) row[document._columns[c]] = records[r][c];
        }
        document._rows.push_back(std::move(row));
    }
    return document;
}
