#pragma once

#include <map>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <string>
#include <variant>
#include <vector>

#include "ZVValue.h"

/// A CSV table after RFC 4180: a header row of column names, then one row
/// per record, fields separated by commas, lines ended by CRLF. Fields that
/// hold a comma, a quote or a line break are quoted, quotes doubled. Dates
/// are written in ISO 8601 with the local offset ("2024-03-01T10:15:30+01:00").
class ZVCSVDocument {
public:
    using Cell = std::variant<std::string, ZVDate>;
    /// Column name to cell; a column without a cell stays empty.
    using Row = std::map<std::string, Cell>;

    explicit ZVCSVDocument(std::vector<std::string> columns);

    const std::vector<std::string>& columns() const { return _columns; }
    const std::vector<Row>& rows() const { return _rows; }
    /// Adds a row; cells of unknown columns are ignored.
    void addRow(Row row);

    std::string stringValue() const;
    /// Writes the table atomically; false on failure.
    bool write(const std::string& path) const;

    /// Parses CSV text (quoted fields may hold commas, quotes and line
    /// breaks); the first record names the columns. Absent when a quote is
    /// left open. Cells come back as strings.
    static std::optional<ZVCSVDocument> parse(const std::string& text);

    static std::string escapedField(const std::string& field);
    /// Appends one record (fields escaped, CRLF at its end) to CSV text;
    /// for tables too large to hold as rows.
    static void appendRecord(std::string& out, std::initializer_list<std::string_view> fields);

private:
    std::vector<std::string> _columns;
    std::vector<Row> _rows;
};
