#include "catalog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include <editline/readline.h>

namespace vexoctl
{

namespace
{

constexpr int HISTORY_LENGTH = 1000;

Names candidates;

char *nextCandidate(const char *, int state)
{
    static size_t index;
    if (state == 0)
        index = 0;
    return index < candidates.size() ? strdup(candidates[index++].c_str()) : nullptr;
}

char **complete(const char *text, int start, int)
{
    const std::string before{rl_line_buffer, static_cast<size_t>(start)};
    try {
        Words words = split(before);
        words.emplace_back(text);
        candidates = completions(words);
    } catch (const UsageError &) {
        candidates.clear();
    }
    rl_attempted_completion_over = 1;
    // An argument is followed by its value, not by a blank.
    rl_completion_append_character =
        candidates.size() == 1 && candidates[0].ends_with('=') ? 0 : static_cast<int>(' ');
    return rl_completion_matches(text, nextCandidate);
}

std::string historyFile()
{
    const char *home = getenv("HOME");
    return home ? std::string{home} + "/.vexoctl_history" : "";
}

} // namespace

Status Session::prompt()
{
    rl_initialize();
    rl_attempted_completion_function = complete;
    static char breaks[] = " \t";
    rl_completer_word_break_characters = breaks;
    // While a line is typed, Ctrl-C empties it.
    rl_parse_and_bind("setty -d intr=");
    rl_parse_and_bind("bind ^C em-kill-line");
    using_history();
    stifle_history(HISTORY_LENGTH);
    const std::string history = historyFile();
    if (!history.empty())
        read_history(history.c_str());
    setCompact(true);
    for (;;) {
        const std::unique_ptr<char, decltype(&free)> line{readline("vexoctl> "), free};
        if (!line || strcmp(line.get(), "quit") == 0 || strcmp(line.get(), "exit") == 0)
            break;
        if (line.get()[0] != '\0')
            add_history(line.get());
        execute(std::string{line.get()});
    }
    if (!history.empty())
        write_history(history.c_str());
    return SUCCESS;
}

} // namespace vexoctl
