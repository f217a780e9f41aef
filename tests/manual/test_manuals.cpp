// The manuals, the --help texts, the keys of the configuration and the completion fit each other.
//
// An entry of a manual is a line that starts with bold or underlined words, before an indented text. The heading above
// an entry of OPTIONS names the commands that have the option: "capture, picture", "All commands" or "All commands
// except check". Options without such a heading belong to the program itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "spat_conv_config.h"
#include "spat_conv_config_settings.h"

namespace {

using Names = std::set<std::string>;

const std::string MANUALS = std::string(V2X_DEBIAN) + "/man/";

// Returns the output of a shell command.
std::string ReadOutput(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(("export PATH=" V2X_BIN ":$PATH; " + command).c_str(), "r");
    for (int character = 0; (character = fgetc(pipe)) != EOF;) {
        output += static_cast<char>(character);
    }
    pclose(pipe);
    return output;
}

// Returns the first group of each match.
Names FindAll(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    Names names;
    for (std::sregex_iterator match(text.begin(), text.end(), regex); match != std::sregex_iterator(); ++match) {
        names.insert((*match)[1]);
    }
    return names;
}

std::string ReadManual(const std::string& page) {
    std::ifstream file(MANUALS + page + ".scd");
    return {std::istreambuf_iterator<char>(file), {}};
}

// Returns the entries of a manual by section and heading, "OPTIONS/capture, picture", without markup: "-s,--socket
// PATH".
std::map<std::string, Names> ReadEntries(const std::string& page) {
    std::map<std::string, Names> entries;
    std::istringstream lines(ReadManual(page));
    std::string section;
    std::string heading;
    std::string last;
    for (std::string line; std::getline(lines, line); last = line) {
        if (line.starts_with("# ")) {
            section = line.substr(2) + "/";
            heading.clear();
        } else if (line.starts_with("## ")) {
            heading = line.substr(3);
        } else if (line.starts_with("\t") && (last.starts_with("*") || last.starts_with("_"))) {
            const std::string plain = std::regex_replace(" " + last, std::regex(R"(\*|( )_|_( |$))"), "$1$2");
            entries[section + heading].insert(std::regex_replace(plain.substr(1), std::regex(", "), ","));
        }
    }
    return entries;
}

// Returns the options and arguments of a --help text with the names of their values: "-s,--socket PATH".
Names ReadHelp(const std::string& help) {
    return FindAll(help, R"(\n {1,2}([A-Z]+\b|-\S+(?: [^ =]*[^ =:](?=[ =\n]))?))");
}

// Returns the commands that the heading names.
Names FindOwners(const std::string& heading, const Names& commands) {
    const std::string all = "All commands";
    if (!heading.starts_with(all)) {
        return FindAll(heading, "([a-z]+)");
    }
    Names owners = commands;
    for (const std::string& excluded : FindAll(heading.substr(all.size()), "([a-z]+)")) {
        owners.erase(excluded);
    }
    return owners;
}

// Fails with the names that only one of both has.
void ExpectSame(const Names& manual, const Names& program, const std::string& page) {
    Names differences;
    std::ranges::set_symmetric_difference(manual, program, std::inserter(differences, differences.end()));
    for (const std::string& name : differences) {
        ADD_FAILURE() << page << (manual.contains(name) ? " has an unknown entry: " : " has no entry: ") << name;
    }
}

class Program : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Manual, Program, testing::Values("v2x_spat_ctl", "v2x_spat_sim", "v2x_msg", "v2x_logtool"));

TEST_P(Program, HasTheCommandsAndOptionsOfItsHelp) {
    const std::string program = GetParam();
    std::map<std::string, Names> entries = ReadEntries(program + ".1");
    const std::string help = ReadOutput(program + " --help");
    const Names commands = FindAll(help.substr(help.find("Subcommands:")), R"(\n  ([a-z]+) )");
    ExpectSame(entries["COMMANDS/"], commands, program);
    ExpectSame(entries["OPTIONS/"], ReadHelp(help), program);
    Names described;
    Names offered;
    for (const auto& [place, options] : entries) {
        const std::string heading = place.substr(place.find('/') + 1);
        for (const std::string& command : FindOwners(heading, heading.empty() ? Names() : commands)) {
            for (const std::string& option : options) {
                described.insert(command + " " + option);
            }
        }
    }
    for (const std::string& command : commands) {
        described.insert(command + " -h,--help");
        for (const std::string& option : ReadHelp(ReadOutput(program + " " + command + " --help"))) {
            offered.insert(command + " " + option);
        }
    }
    ExpectSame(described, offered, program);
}

// Its help has no long options.
TEST(Manual, DaemonHasTheOptionsOfItsHelp) {
    const std::string manual = ReadManual("v2x_spat_convert.8");
    ExpectSame(FindAll(manual, R"(\n\*(-.)\*, \*--)"), FindAll("\n" + ReadOutput("v2x_spat_convert -h"), R"(\n (-.) )"),
               "v2x_spat_convert");
    const Names longOptions = FindAll(manual, R"(\n\*-.\*, \*(--[a-z]+)\*)");
    EXPECT_EQ(longOptions.size(), 5U);
    for (const std::string& option : longOptions) {
        EXPECT_EQ(ReadOutput("v2x_spat_convert " + option + " /x -v 2>&1").find("param error"), std::string::npos)
            << option;
    }
}

TEST(Manual, HasTheKeysOfTheConfiguration) {
    std::map<std::string, Names> keys;
    cJSON* const settings = v2xspatconv_ListSettings(spat_conv_config_t{});
    const cJSON* setting = nullptr;
    cJSON_ArrayForEach(setting, settings) {
        const std::string file = cJSON_GetObjectItem(setting, "file")->valuestring;
        const std::string key = cJSON_GetObjectItem(setting, "key")->valuestring;
        keys[file == "conf/v2x_ipc.cfg" ? "v2x_ipc.cfg.5" : "v2x_spat_convert.cfg.5"].insert(
            std::regex_replace(key, std::regex("^rsuSpatConfigInfo\\."), ""));
    }
    cJSON_Delete(settings);
    ASSERT_EQ(keys.size(), 2U);
    for (const auto& [page, expected] : keys) {
        Names names;
        for (const auto& [place, entries] : ReadEntries(page)) {
            for (const std::string& entry : entries) {
                names.merge(FindAll(entry.substr(0, entry.find(" = ")), "([^,]+)"));
            }
        }
        ExpectSame(names, expected, page);
    }
}

TEST(Manual, IsWellFormed) {
    int pages = 0;
    for (const auto& file : std::filesystem::directory_iterator(MANUALS)) {
        const std::string page = file.path().stem();
        EXPECT_EQ(ReadOutput("(scdoc <" + file.path().string() +
                             " | LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 - >/dev/null) 2>&1"),
                  "")
            << page;
        for (const std::string& other : FindAll(ReadManual(page), R"((\*v2x_[a-z_.]+\*\(\d\)))")) {
            const std::string name = std::regex_replace(other, std::regex(R"(\*(.*)\*\((.)\))"), "$1.$2");
            EXPECT_TRUE(std::filesystem::exists(MANUALS + name + ".scd")) << page << " refers to " << name;
        }
        pages++;
    }
    EXPECT_EQ(pages, 7);
}

// "default" and "dirnames" tell bash to complete names of files and of directories.
TEST(Completion, OffersWhatTheHelpLists) {
    const struct {
        const char* words;
        const char* offered;
    } rows[] = {
        {"v2x_spat_ctl b", "bugreport"},
        {"v2x_spat_ctl picture --s", "--socket --seconds"},
        {"v2x_spat_ctl picture -o ''", "-o default"},
        {"v2x_spat_ctl picture --socket ''", "-o default"},
        {"v2x_spat_ctl picture --workdir = /t", "-o dirnames"},
        {"v2x_spat_ctl picture --seconds ''", ""},
        {"v2x_spat_ctl status --json --b", "--brief"},
        {"v2x_spat_convert -", "-h -v -d -f -w"},
        {"v2x_spat_convert -w ''", "-o dirnames"},
        {"v2x_spat_sim ''", "learner controller stack cloud"},
        {"v2x_logtool set --p", "--port"},
        {"v2x_msg de", "decode"},
        {"v2x_msg info spat", "-o default"},
    };
    const std::string script = ". " V2X_DEBIAN "/completion/v2x_spat_convert; compopt() { COMPREPLY=(\"$@\"); }; "
                               "COMP_CWORD=$(($# - 1)); COMP_WORDS=(\"$@\"); "
                               "_v2x_spat_convert \"$1\" \"${!#}\" \"${COMP_WORDS[COMP_CWORD - 1]}\"; "
                               "echo -n \"${COMPREPLY[*]}\"";
    for (const auto& row : rows) {
        EXPECT_EQ(ReadOutput("bash -euc '" + script + "' bash " + row.words), row.offered) << row.words;
    }
}

} // namespace
