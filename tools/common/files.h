// Reads and writes files. The path "-" means standard input or standard output. All functions and constructors throw
// std::runtime_error "path: reason" if a system call fails.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tools {

// A file cannot be written.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The reader of a pipe has closed it.
class ClosedPipe : public OutputError {
public:
    using OutputError::OutputError;
};

// Throws OutputError "name: cannot be written: reason" with the reason in errno, ClosedPipe for EPIPE.
[[noreturn]] void ThrowOutputError(const std::string& name);

// Returns the whole file. Also throws if the file is longer than `maxSize` bytes.
std::string ReadFile(const std::string& path, size_t maxSize);

// Replaces the file with `text`, through an OutputFile.
void WriteFile(const std::string& path, std::string_view text);

class OutputFile;

// Reads a file in blocks or lines. Does not wait for more data while a pipe has some.
class InputFile {
public:
    static constexpr size_t MAX_LINE = size_t{8} << 20;
    static constexpr size_t BLOCK_SIZE = 65536; // the most that Peek and ReadBlock return

    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Returns the path, or "standard input".
    const std::string& Name() const { return m_name; }

    // Before a read must wait for data, flushes `output`, which must outlive this file.
    void FlushBeforeWait(OutputFile& output) { m_output = &output; }

    // Returns the next bytes without reading past them: at least `size` bytes, or all bytes of a shorter input. `size`
    // is at most 65536. The bytes are valid until the next call.
    std::string_view Peek(size_t size);

    // Discards `size` bytes of the last Peek.
    void Skip(size_t size) { m_rest.remove_prefix(size); }

    // Copies at most `size` bytes. Returns their number; 0 at the end of the input.
    size_t Read(char* bytes, size_t size);

    // Returns the next bytes, at most 65536. They are valid until the next call. Returns an empty view at the end of
    // the input.
    std::string_view ReadBlock();

    // Reads the next line without its line end. Truncates a line longer than MAX_LINE to MAX_LINE + 1 characters.
    // Returns false at the end of the input.
    bool ReadLine(std::string& line);

private:
    // Reads more bytes after m_rest.
    void Fill();

    std::string m_name;
    int m_file;
    OutputFile* m_output = nullptr;
    bool m_isEnded = false;  // no read after the end of the input: a terminal could deliver more
    std::string_view m_rest; // the unread part of m_buffer
    std::array<char, BLOCK_SIZE> m_buffer{};
};

// Writes a file. For a regular file, Write fills a temporary file in the same folder, and Commit replaces the file. The
// new file has the permissions of the old one. A terminal receives the text of each Write at once; other files receive
// blocks of 64 KiB.
class OutputFile {
public:
    // Also throws if the path names a regular file of `inputs`, which are paths for InputFile.
    explicit OutputFile(const std::string& path, std::span<const std::string> inputs = {});
    // Deletes the temporary file if Commit was not called.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view text);

    // Passes the buffered text to the operating system.
    void Flush();

    // Flushes and closes the file and renames the temporary file to the path. Do not call Write after Commit.
    void Commit();

private:
    std::string m_name;
    std::string m_target;    // the path after resolving symbolic links
    std::string m_temporary; // the path of the temporary file; empty if there is none
    int m_file = -1;
    bool m_isTerminal = false;
    std::string m_buffer;
};

} // namespace tools
