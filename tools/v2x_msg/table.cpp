#include "table.h"

#include <algorithm>
#include <utility>

namespace msg {
namespace {

void AppendCell(const std::string& cell, Align align, size_t width, std::string& line) {
    const size_t padding = width - cell.size();
    line.append(2 + (align == Align::left ? 0 : padding), ' ');
    line += cell;
    line.append(align == Align::left ? padding : 0, ' ');
}

} // namespace

Table::Table(std::vector<Column> columns) : m_columns(std::move(columns)), m_widths(m_columns.size()) {
    Cells heads;
    for (const Column& column : m_columns) {
        heads.emplace_back(column.head);
    }
    Add(std::move(heads));
}

void Table::Add(Cells cells) {
    cells.resize(m_columns.size());
    for (size_t i = 0; i < cells.size(); ++i) {
        m_widths[i] = std::max(m_widths[i], cells[i].size());
    }
    m_rows.push_back(std::move(cells));
}

std::string Table::Format() const {
    std::string text;
    for (size_t row = 0; m_rows.size() > 1 && row < m_rows.size(); ++row) {
        for (size_t i = 0; i < m_columns.size(); ++i) {
            AppendCell(m_rows[row][i], m_columns[i].align, m_widths[i], text);
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
    return text;
}

} // namespace msg
