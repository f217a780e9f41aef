// The folder of a report before it is packed, and its programs and files.
#pragma once

#include <string>
#include <vector>

namespace ctl {

// A new folder NAME in a temporary folder. The destructor removes both.
class ReportFolder {
public:
    // Throws std::runtime_error with the reason.
    explicit ReportFolder(const std::string& name);
    ~ReportFolder();
    ReportFolder(const ReportFolder&) = delete;
    ReportFolder& operator=(const ReportFolder&) = delete;

    // Returns the path of a file in the folder.
    std::string PathOf(const std::string& file) const { return m_temporary + "/" + m_name + "/" + file; }

    // Copies the last bytes of a file, at most MAX_COPY, into the folder `subfolder`, which is created if necessary.
    // Throws std::runtime_error "path: reason".
    void CopyTail(const std::string& path, const std::string& subfolder) const;
    static constexpr int64_t MAX_COPY = int64_t{2} << 20;

    // Packs the folder with tar and gzip. The path "-" means standard output. Throws std::runtime_error.
    void Pack(const std::string& archive) const;

private:
    const std::string m_name;
    std::string m_temporary;
};

// Runs a program, found in PATH, and waits for its end. Its standard output goes to the file `output`; an empty name
// means the standard output of this program. Returns the exit status, 128 + signal after a fatal signal. Throws
// std::runtime_error if the program cannot be started.
int RunProgram(const std::vector<std::string>& arguments, const std::string& output);

} // namespace ctl
