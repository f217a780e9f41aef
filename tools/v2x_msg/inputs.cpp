#include "inputs.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "common/hex.h"

namespace msg {
namespace {

bool IsFile(const std::string& word) {
    std::error_code error;
    return word == "-" || std::filesystem::exists(word, error);
}

bool IsHex(const std::string& word) {
    std::vector<uint8_t> bytes;
    return tools::AppendHex(word, bytes).empty();
}

bool LooksLikePath(const std::string& word) {
    return word.find_first_of("/.") != word.npos;
}

using ReadInput = std::function<void(tools::InputFile& input, InputKind kind)>;

void OpenAndRead(const std::string& path, Wanted wanted, tools::OutputFile& output, const ReadInput& read) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw std::runtime_error(path + ": a directory; name the files in it");
    }
    tools::InputFile input(path);
    input.FlushBeforeWait(output);
    const InputKind kind = RecognizeInput(input, wanted);
    const std::string advice = Advise(kind, wanted);
    if (!advice.empty()) {
        throw std::runtime_error(input.Name() + ": " + advice);
    }
    read(input, kind);
}

} // namespace

FrameArguments SortWords(const std::vector<std::string>& words, const std::string& defaultPath, bool areFiles) {
    if (words.empty()) {
        return {{defaultPath}, ""};
    }
    const auto file = std::ranges::find_if(words, IsFile);
    const auto digits = std::ranges::find_if(words, [&](const std::string& word) {
        return !IsFile(word) && (IsHex(word) || (file == words.end() && !LooksLikePath(word)));
    });
    if (areFiles || digits == words.end()) {
        return {words, ""};
    }
    if (file != words.end()) {
        throw std::invalid_argument("'" + *file + "' is a file, '" + *digits +
                                    "' is hex: give either files or one frame in hex");
    }
    FrameArguments arguments;
    for (const std::string& word : words) {
        arguments.hex += word + " ";
    }
    return arguments;
}

void ForEachInput(const std::vector<std::string>& paths, Wanted wanted, Report& report, tools::OutputFile& output,
                  const ReadInput& read) {
    for (const std::string& path : paths) {
        try {
            OpenAndRead(path, wanted, output, read);
        } catch (const tools::OutputError&) {
            throw;
        } catch (const std::runtime_error& error) {
            report.InputError(error.what());
        }
    }
}

} // namespace msg
