#include "report_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace ctl {

namespace fs = std::filesystem;

ReportFolder::ReportFolder(const std::string& name)
    : m_name(name), m_temporary((fs::temp_directory_path() / "v2x_report.XXXXXX").string()) {
    if (mkdtemp(m_temporary.data()) == nullptr) {
        throw std::runtime_error(m_temporary + ": " + std::strerror(errno));
    }
    fs::create_directory(PathOf(""));
}

ReportFolder::~ReportFolder() {
    std::error_code error;
    fs::remove_all(m_temporary, error);
}

void ReportFolder::CopyTail(const std::string& path, const std::string& subfolder) const {
    std::ifstream from(path, std::ios::binary | std::ios::ate);
    if (!from) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    const int64_t size = from.tellg();
    const int64_t length = std::min(size, MAX_COPY);
    std::string bytes(static_cast<size_t>(length), '\0');
    from.seekg(size - length);
    from.read(bytes.data(), length);
    bytes.resize(static_cast<size_t>(from.gcount())); // the file may have been truncated
    const fs::path to = fs::path(PathOf(subfolder)) / fs::path(path).filename();
    fs::create_directories(to.parent_path());
    std::ofstream(to, std::ios::binary) << bytes;
}

void ReportFolder::Pack(const std::string& archive) const {
    const int status = RunProgram({"tar", "--force-local", "-czf", archive, "-C", m_temporary, m_name}, "");
    if (status != 0) {
        throw std::runtime_error(archive + ": tar has failed with status " + std::to_string(status));
    }
}

int RunProgram(const std::vector<std::string>& arguments, const std::string& output) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!output.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    }
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error(arguments.front() + ": " + std::strerror(error));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace ctl
