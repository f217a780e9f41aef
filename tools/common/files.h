// Reads and writes files. The path "-" means standard input or standard output. All functions and constructors throw
// std::runtime_error "path: reason" if a system call fails.
#pragma once

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tools {

// The reader of a pipe has closed it.
class ClosedPipe : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws std::runtime_error "name: cannot be ACTION: reason" with the reason in errno, ClosedPipe for EPIPE.
[[noreturn]] void ThrowFileError(const std::string& name, const char* action);

// Returns the whole file. Also throws if the file is longer than `maxSize` bytes.
std::string ReadFile(const std::string& path, size_t maxSize);

// Replaces the file with `text`, through an OutputFile.
void WriteFile(const std::string& path, std::string_view text);

// Reads a file in blocks or lines. Does not wait for more data while a pipe has some.
class InputFile {
public:
    static constexpr size_t MAX_LINE = size_t{8} << 20;

    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Returns the path, or "standard input".
    const std::string& Name() const { return m_name; }

    // Returns true if this file is a regular file and `other` describes the same inode.
    bool IsSameFile(const struct stat& other) const;

    // Returns the next bytes, at most 65536. They are valid until the next call. Returns an empty view at the end of
    // the input.
    std::string_view ReadBlock();

    // Reads the next line without its line end. Truncates a line longer than MAX_LINE to MAX_LINE + 1 characters.
    // Returns false at the end of the input.
    bool ReadLine(std::string& line);

private:
    std::string m_name;
    int m_file;
    bool m_isEnded = false;  // no read after the end of the input: a terminal could deliver more
    std::string_view m_rest; // the unread part of m_buffer
    std::array<char, 65536> m_buffer{};
};

// Writes a file. For a regular file, Write fills a temporary file in the same folder, and Commit replaces the file. The
// new file has the permissions of the old one. Standard output, devices and pipes receive the text of each Write at
// once.
class OutputFile {
public:
    // Also throws if the path names the regular file that `input` reads. `input` may be null.
    explicit OutputFile(const std::string& path, const InputFile* input = nullptr);
    // Deletes the temporary file if Commit was not called.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view text);

    // Closes the file and renames the temporary file to the path. Do not call Write after Commit.
    void Commit();

private:
    std::string m_name;
    std::string m_target;    // the path after resolving symbolic links
    std::string m_temporary; // the path of the temporary file; empty if there is none
    int m_file = -1;
};

} // namespace tools
