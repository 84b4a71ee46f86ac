// zmu-speccheck: runs the response specs of a resource module or of a string-table script through
// the library's parsers and formatter, and prints one line per response spec and a summary.
//
// Exit status: 0 when every spec passes, 1 when any fails, 2 on bad usage or unreadable input.
#include "platform/Utf8Text.h"
#include "tools/SpecChecker.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr int kAllPassed = 0;
constexpr int kSomeFailed = 1;
constexpr int kBadUsage = 2;

const char* const kUsage =
    "usage: zmu-speccheck [options] INPUT\n"
    "\n"
    "Runs every response spec of INPUT through the library's parsers and formatter. INPUT is a\n"
    "resource module (a path, or a name such as strings.dll) or a string-table script (.rc).\n"
    "A response spec is a string that starts with digits and ~.\n"
    "\n"
    "  --ids LIST        only these ids, such as 3000-3999,4100\n"
    "  --render ID       check spec ID alone, and print its display and log texts\n"
    "  --arg VALUE       an argument for --render, in filler order: a number for d and u,\n"
    "                    a text for s (repeatable; missing ones are 0 and \"sample\")\n"
    "  --affix-min N     string id of affix 0 (default: unset)\n"
    "  --affix-qty N     number of affixes (default 0: any affix fails)\n"
    "  --plug-ins N      rows of the plug-in table (default 0)\n"
    "  --fillers N       fillers quantity, 5 to 99 (default 20)\n"
    "  --args N          recorded argument slots of each kind, 0 to 99 (default 10)\n"
    "  --help            this text\n"
    "\n"
    "Prints \"ID OK\" or \"ID FAIL CODE reason\" for each spec (\"FAIL -\" for a fault the library does not\n"
    "see: an insert whose filler is missing or of the other kind), then \"N specs, M failed\".\n"
    "Exit status: 0 all passed, 1 some failed, 2 bad usage or unreadable input.\n";

struct CommandLine
{
    std::string input;
    std::string ids;
    bool rendering = false;
    unsigned int renderID = 0;
    std::vector<std::string> args;
    SpecCheckSettings settings;
};

bool readNumber(const char* text, long long minimum, long long maximum, long long& value)
{
    if (text == nullptr || *text == '\0')
        return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtoll(text, &end, 10);
    return errno == 0 && *end == '\0' && value >= minimum && value <= maximum;
}

bool isScript(const std::string& path)
{
    if (path.size() <= 3)
        return false;
    const std::string extension = path.substr(path.size() - 3);
    return extension == ".rc" || extension == ".RC" || extension == ".Rc" || extension == ".rC";
}

// False with the reason on bad usage; `help` is set for --help.
bool parseCommandLine(int argc, char** argv, CommandLine& line, bool& help, std::string& error)
{
    help = false;
    for (int index = 1; index < argc; ++index) {
        const std::string option = argv[index];
        if (option == "--help" || option == "-h") {
            help = true;
            return true;
        }
        if (option.size() < 2 || option.compare(0, 2, "--") != 0) {
            if (!line.input.empty()) {
                error = "more than one input: " + line.input + " and " + option;
                return false;
            }
            line.input = option;
            continue;
        }
        if (index + 1 >= argc) {
            error = option + " needs a value";
            return false;
        }
        const char* const value = argv[++index];
        long long number = 0;
        const auto readSetting = [&](long long minimum, long long maximum, int& setting) {
            if (!readNumber(value, minimum, maximum, number)) {
                error = option + " takes a number, not \"" + value + "\"";
                return false;
            }
            setting = static_cast<int>(number);
            return true;
        };
        if (option == "--ids") {
            line.ids = value;
        } else if (option == "--render") {
            if (!readNumber(value, 0, 65535, number)) {
                error = "--render takes a string id from 0 to 65535, not \"" + std::string(value) + "\"";
                return false;
            }
            line.rendering = true;
            line.renderID = static_cast<unsigned int>(number);
        } else if (option == "--arg") {
            line.args.push_back(value);
        } else if (option == "--affix-min") {
            if (!readSetting(1, 32767, line.settings.descriptionAffixID_Min))
                return false;
        } else if (option == "--affix-qty") {
            if (!readSetting(0, 32767, line.settings.descriptionAffixIDsQty))
                return false;
        } else if (option == "--plug-ins") {
            if (!readSetting(0, 10000, line.settings.plugInsQty))
                return false;
        } else if (option == "--fillers") {
            if (!readSetting(0, 1000, line.settings.descriptionFillersQty))
                return false;
        } else if (option == "--args") {
            if (!readSetting(0, 1000, line.settings.argsQty))
                return false;
        } else {
            error = "unknown option " + option;
            return false;
        }
    }
    if (line.input.empty())
        error = "no input given";
    else if (!line.args.empty() && !line.rendering)
        error = "--arg is only for --render";
    else if (line.rendering && !line.ids.empty())
        error = "--render and --ids do not go together";
    else if (!SpecChecker::isValid(line.settings, error))
        return false;
    return error.empty();
}

std::string utf8(const std::wstring& text)
{
    return zmu_platform::narrowToUtf8(text.c_str(), text.size());
}

void printResult(const SpecCheckResult& result)
{
    std::cout << result.id;
    if (result.passed()) {
        std::cout << " OK\n";
    } else if (result.dxCode != 0) {
        const char* const reason = SpecChecker::explainDxCode(result.dxCode);
        std::cout << " FAIL " << result.dxCode << ' ' << (reason != nullptr ? reason : "see the trace") << '\n';
    } else {
        std::cout << " FAIL - " << result.finding << '\n';
    }
}

} // namespace

int main(int argc, char** argv)
{
    CommandLine line;
    bool help = false;
    std::string error;
    if (!parseCommandLine(argc, argv, line, help, error)) {
        std::cerr << "zmu-speccheck: " << error << "\n\n" << kUsage;
        return kBadUsage;
    }
    if (help) {
        std::cout << kUsage;
        return kAllPassed;
    }
    SpecIdRanges ranges;
    if (!line.ids.empty() && !SpecChecker::parseIdRanges(line.ids, ranges)) {
        std::cerr << "zmu-speccheck: --ids takes ids and ranges from 0 to 65535, such as 3000-3999,4100, not \""
                  << line.ids << "\"\n";
        return kBadUsage;
    }

    SpecChecker checker(line.settings);
    if (!(isScript(line.input) ? checker.openScript(line.input, error) : checker.openModule(line.input, error))) {
        std::cerr << (isScript(line.input) ? "" : "zmu-speccheck: ") << error << '\n';
        return kBadUsage;
    }

    const std::vector<unsigned int> ids =
        line.rendering ? std::vector<unsigned int>{line.renderID} : checker.learnSpecIDs(ranges);
    int failed = 0;
    for (const unsigned int id : ids) {
        const SpecCheckResult result = checker.checkSpec(id, line.args);
        if (!result.argumentError.empty()) {
            std::cerr << "zmu-speccheck: " << result.argumentError << '\n';
            return kBadUsage;
        }
        printResult(result);
        failed += result.passed() ? 0 : 1;
        if (line.rendering && result.passed()) {
            if (result.displayShown)
                std::cout << "display (style " << result.displayStyle << "): " << utf8(result.displayText) << '\n';
            else
                std::cout << "display: nothing shown\n";
            std::cout << "log: " << utf8(result.logText) << '\n';
        }
    }
    std::cout << ids.size() << " specs, " << failed << " failed\n";
    return failed == 0 ? kAllPassed : kSomeFailed;
}
