#include "spat_conv_control_queue.h"

#include <algorithm>

std::deque<v2xspatconv_controlQueue::Entry>::iterator v2xspatconv_controlQueue::FirstUnsent() {
    return m_lines.begin() + (m_sent > 0 ? 1 : 0);
}

bool v2xspatconv_controlQueue::DiscardOldestEvent() {
    const auto oldest = std::find_if(FirstUnsent(), m_lines.end(), [](const Entry& entry) { return entry.isEvent; });
    if (oldest == m_lines.end()) {
        return false;
    }
    m_size -= oldest->line->size();
    m_lines.erase(oldest);
    m_lost++;
    return true;
}

void v2xspatconv_controlQueue::Add(const v2xspatconv_line_t& line, bool isEvent) {
    while (m_size + line->size() > CAPACITY && DiscardOldestEvent()) {
    }
    if (isEvent && m_size + line->size() > CAPACITY) {
        m_lost++;
        return;
    }
    m_lines.push_back({line, isEvent, !isEvent});
    m_size += line->size();
    m_replies += isEvent ? 0 : 1;
}

void v2xspatconv_controlQueue::InsertLost() {
    const auto line = std::make_shared<const std::string>("{\"lost\":" + std::to_string(m_lost) + "}\n");
    m_lines.insert(FirstUnsent(), {line, false, false});
    m_size += line->size();
    m_lost = 0;
}

std::span<iovec> v2xspatconv_controlQueue::Peek(std::span<iovec> parts) {
    if (m_lost > 0) {
        InsertLost();
    }
    const size_t count = std::min(parts.size(), m_lines.size());
    for (size_t i = 0; i < count; i++) {
        const std::string& text = *m_lines[i].line;
        const size_t skipped = i == 0 ? m_sent : 0;
        parts[i] = {const_cast<char*>(text.data()) + skipped, text.size() - skipped}; // iovec has no const variant
    }
    return parts.first(count);
}

void v2xspatconv_controlQueue::Remove(size_t size) {
    m_sent += size;
    while (!m_lines.empty() && m_sent >= m_lines.front().line->size()) {
        const size_t length = m_lines.front().line->size();
        m_replies -= m_lines.front().isReply ? 1 : 0;
        m_sent -= length;
        m_size -= length;
        m_lines.pop_front();
    }
}
