#include "spat_conv_deamon_output.h"

#include <cstddef>
#include <poll.h>
#include <unistd.h>

namespace {

// A line of at most 64 bytes. The class avoids the C library's printing functions, which a signal handler must not
// call.
class Line {
public:
    void Add(const char* text) {
        while (*text != '\0' && m_length < sizeof m_text) {
            m_text[m_length++] = *text++;
        }
    }
    void Add(int32_t number) {
        char digits[12];
        char* first = digits + sizeof digits;
        *--first = '\0';
        do {
            *--first = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number > 0);
        Add(first);
    }
    void Write() const {
        pollfd out = {STDOUT_FILENO, POLLOUT, 0};
        if (poll(&out, 1, 0) == 1 && (out.revents & POLLOUT) != 0) {
            [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, m_text, m_length);
        }
    }

private:
    char m_text[64];
    size_t m_length = 0;
};

} // namespace

void v2xspatconv_PutLine(const char* text) {
    Line line;
    line.Add(text);
    line.Add("\n");
    line.Write();
}

void v2xspatconv_PutLineWithNumber(const char* text, int32_t number) {
    Line line;
    line.Add(text);
    line.Add(" (");
    line.Add(number);
    line.Add(")\n");
    line.Write();
}
