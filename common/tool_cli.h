// The command line of both tools, rvpoll and rvsim, read the same way: CLI11
// with the last value of a repeated option winning, -h/-V/-q/-v as flags,
// and whatever it does not know left for the tool to name.
#ifndef RV_COMMON_TOOL_CLI_H
#define RV_COMMON_TOOL_CLI_H

#include <ctype.h>

#include <string>

#include <CLI/CLI.hpp>

struct ToolFlags {
    bool &help, &version, &quiet, &verbose;
};

inline void setUpToolCli(CLI::App &app, const ToolFlags &flags)
{
    app.set_help_flag();
    app.allow_extras();
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_flag("-h,--help", flags.help);
    app.add_flag("-V,--version", flags.version);
    app.add_flag("-q,--quiet", flags.quiet);
    app.add_flag("-v,--verbose", flags.verbose);
}

// Parses argv; false with "--baud needs a value", the one thing CLI11 can
// object to once unknown arguments are left to the tool.
inline bool parseToolCli(CLI::App &app, int argc, char **argv, std::string &error)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const std::string what = e.what();
        error = what.substr(0, what.find(':')) + " needs a value";
        return false;
    }
    return true;
}

// 'N', 'E' or 'O' for none|even|odd or N|E|O in either case; 0 otherwise.
inline char parityByName(std::string text)
{
    for (char &c : text)
        c = char(tolower(static_cast<unsigned char>(c)));
    if (text == "n" || text == "none")
        return 'N';
    if (text == "e" || text == "even")
        return 'E';
    if (text == "o" || text == "odd")
        return 'O';
    return 0;
}

#endif
