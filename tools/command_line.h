// What the command lines of the programs have in common.
#ifndef TOOLS_COMMAND_LINE_H
#define TOOLS_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <sstream>
#include <string>

// CLI::Range has "nan" in every range.
inline CLI::Validator between(double least, double most)
{
    return {[=](const std::string &text) -> std::string {
                double value = 0;
                if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most)
                    return "";
                std::ostringstream reason;
                reason.precision(10);
                reason << "expected a number from " << least << " to " << most << ", not '" << text
                       << "'";
                return reason.str();
            },
            ""};
}

// What is wrong with the words; a word that is none is told before what lacks.
inline std::string reasonOf(const CLI::App &app, const CLI::ParseError &error)
{
    const auto rest = app.remaining(true);
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const bool lacks = code == CLI::ExitCodes::RequiredError || code == CLI::ExitCodes::ExtrasError;
    return lacks && !rest.empty() ? "there is no '" + rest.front() + "' here" : error.what();
}

#endif
