// Files that the tools read and write; the path "-" means standard input or standard output. Everything here throws
// std::runtime_error "path: reason" when the file system refuses.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tools {

// Returns the whole file. Also throws when it is longer than `most` bytes.
std::string ReadFile(const std::string& path, size_t most);

// Writes `text` as OutputFile does.
void WriteFile(const std::string& path, std::string_view text);

// Reads a file as its bytes arrive: what a pipe holds is delivered without waiting for more.
class InputFile {
public:
    static constexpr size_t MAX_LINE = size_t{8} << 20;

    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // The path, or "standard input".
    const std::string& Name() const { return m_name; }

    // Whether `other` describes the same regular file, under whatever name.
    bool IsSameFile(const struct stat& other) const;

    // The next bytes, valid until the next call; empty at the end of the input.
    std::string_view Piece();

    // Reads the next line, without its end; false at the end of the input. Of a line longer than MAX_LINE only the
    // first MAX_LINE + 1 characters are kept.
    bool Line(std::string& line);

private:
    std::string m_name;
    int m_file;
    bool m_isEnded = false;  // after its end a terminal could deliver more
    std::string_view m_rest; // of the buffer, not yet delivered
    std::array<char, 65536> m_buffer{};
};

// Writes a file as a whole. A regular file is replaced only by Commit: until then the text is in a temporary file in
// the same folder. The permissions stay. Standard output, a device or a pipe gets each piece at once.
class OutputFile {
public:
    // Also throws when the path names the regular file that `input` reads. `input` may be null.
    explicit OutputFile(const std::string& path, const InputFile* input = nullptr);
    // Discards what was not committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view piece);

    // Closes the file and renames the temporary one. Write must not be called afterwards.
    void Commit();

private:
    std::string m_name;
    std::string m_target;    // the file behind all links
    std::string m_temporary; // empty unless there is a temporary file
    int m_file = -1;
};

} // namespace tools
