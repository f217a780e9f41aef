// Where a command writes to: each piece at once, so that a pipe's reader sees it and no error is found too late.
#pragma once

#include <string>
#include <string_view>

namespace msg {

class Output {
public:
    // Standard output.
    Output();
    // Makes or empties the file. Throws std::runtime_error when it cannot.
    explicit Output(const std::string& path);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Throws std::runtime_error when the piece is not taken whole: a full disk, a reader that has gone.
    void Write(std::string_view piece) const;

    // To be called at the end: some file systems report a full disk only now. Throws std::runtime_error.
    void Close();

private:
    int m_file;
    std::string m_name;
};

} // namespace msg
