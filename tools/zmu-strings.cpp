// zmu-strings: turns a string-table script into the C++ source of a resource module.
//
// Exit codes: 0 written, 1 a bad script or an unwritable output, 2 bad usage.
#include "tools/StringTableScript.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

namespace {

const char kUsage[] =
    "usage: zmu-strings INPUT.rc OUTPUT.cpp\n"
    "Reads the STRINGTABLE blocks of a resource script (UTF-8) and writes the C++ source of a\n"
    "resource module that serves them through an exported ZRLoadStringW.\n";

// Written beside the output and renamed over it, so that a failed run leaves no half file.
bool recordSource(const std::string& path, const std::string& source)
{
    const std::string part = path + ".part";
    {
        std::ofstream file(part, std::ios::binary | std::ios::trunc);
        file << source;
        file.close();
        if (!file) {
            std::remove(part.c_str());
            return false;
        }
    }
    if (std::rename(part.c_str(), path.c_str()) != 0) {
        std::remove(part.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::cout << kUsage;
        return 0;
    }
    if (argc != 3) {
        std::cerr << kUsage;
        return 2;
    }
    StringTableScript script;
    if (!script.load(argv[1])) {
        std::cerr << script.errorMessage(argv[1]) << "\n";
        return 1;
    }
    if (!recordSource(argv[2], script.moduleSource())) {
        std::cerr << "zmu-strings: cannot write " << argv[2] << "\n";
        return 1;
    }
    return 0;
}
