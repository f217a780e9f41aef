// Lays out text in columns.
#pragma once

#include <string>
#include <vector>

namespace msg {

using Cells = std::vector<std::string>;

enum class Align { left, right };

struct Column {
    const char* head;
    Align align = Align::right;
};

class Table {
public:
    explicit Table(std::vector<Column> columns);

    // Adds a row of one cell for each column.
    void Add(Cells cells);

    // Returns a line of heads and a line for each row, indented by two spaces. A table without rows is empty.
    std::string Format() const;

private:
    std::vector<Column> m_columns;
    std::vector<size_t> m_widths; // of the columns, in characters
    std::vector<Cells> m_rows;
};

} // namespace msg
