#include "catalog.h"
#include "print.h"

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include <histedit.h>

namespace vexoctl
{

namespace
{

constexpr int HISTORY_LENGTH = 1000;

// What all of them begin with.
std::string beginning(const Names &names)
{
    std::string common = names[0];
    for (const std::string &name : names)
        common.erase(std::mismatch(common.begin(), common.end(), name.begin(), name.end()).first,
                     common.end());
    // No part of a character.
    while (common.size() < names[0].size() && (names[0][common.size()] & 0xC0) == 0x80)
        common.pop_back();
    return common;
}

std::string escaped(const std::string &text)
{
    std::string result;
    for (const char c : text)
        result += (strchr(" \t\"'\\", c) ? "\\" : "") + std::string(1, c);
    return result;
}

unsigned char complete(EditLine *editor, int)
{
    const LineInfo *line = el_line(editor);
    Lexed typed = lex({line->buffer, line->cursor});
    if (!typed.isWordOpen)
        typed.words.emplace_back();
    const Names found = completions(typed.words);
    if (found.empty())
        return CC_REFRESH_BEEP;
    std::string rest = beginning(found).substr(typed.words.back().size());
    if (!typed.isQuoteOpen)
        rest = escaped(rest);
    // An argument is followed by its value, and a folder by what is in it.
    if (found.size() == 1 && !found[0].ends_with('=') && !found[0].ends_with('/'))
        rest += ' ';
    if (!rest.empty())
        return el_insertstr(editor, rest.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    std::cout << "\n";
    for (const std::string &name : found)
        std::cout << printable(name) << "  ";
    std::cout << std::endl;
    return CC_REDISPLAY;
}

// A stop that came as a signal while nothing is read would leave no prompt behind it.
unsigned char stop(EditLine *editor, int)
{
    el_set(editor, EL_PREP_TERM, 0);
    kill(0, SIGTSTP);
    el_set(editor, EL_PREP_TERM, 1);
    el_wset(editor, EL_REFRESH);
    return CC_NORM;
}

class Editor
{
  public:
    Editor() : editor_{el_init("vexoctl", stdin, stdout, stderr)}, history_{history_init()}
    {
        EditLine *const editor = editor_.get();
        el_set(editor, EL_CLIENTDATA, this);
        el_set(editor, EL_PROMPT, showPrompt);
        el_set(editor, EL_EDITOR, "emacs");
        // Of the signals, libedit needs to know the terminal's new size, and a stop from elsewhere.
        el_set(editor, EL_SIGNAL, 1);
        el_set(editor, EL_SAFEREAD, 1);
        el_set(editor, EL_HIST, ::history, history_.get());
        // Of narrow texts libedit would make copies that it never frees.
        el_wset(editor, EL_ADDFN, L"complete", L"Complete a word", complete);
        el_wset(editor, EL_ADDFN, L"stop", L"Stop the job", stop);
        el_source(editor, nullptr);
        el_set(editor, EL_BIND, "^I", "complete", nullptr);
        // While a line is typed, Ctrl-C empties it.
        el_set(editor, EL_SETTY, "-d", "-intr", "intr=", "-susp", "susp=", nullptr);
        el_set(editor, EL_BIND, "^C", "em-kill-line", nullptr);
        el_set(editor, EL_BIND, "^Z", "stop", nullptr);
        recall();
    }
    Editor(const Editor &) = delete;

    bool read(const char *prompt, std::string &line)
    {
        prompt_ = prompt;
        int count = 0;
        // Before the prompt is shown, so that no Ctrl-C behind it comes as a signal.
        el_set(editor_.get(), EL_PREP_TERM, 1);
        const char *const typed = el_gets(editor_.get(), &count);
        if (!typed || count <= 0)
            return false;
        line.assign(typed, static_cast<size_t>(count));
        if (line.ends_with('\n'))
            line.pop_back();
        return true;
    }

    // At once: nobody knows how the program ends.
    void remember(const std::string &line)
    {
        HistEvent event;
        history(history_.get(), &event, H_ENTER, line.c_str());
        if (FILE *stream = file_.empty() ? nullptr : fopen(file_.c_str(), "a")) {
            fseek(stream, 0, SEEK_END);
            history(history_.get(), &event, H_NSAVE_FP, size_t{0}, stream);
            fclose(stream);
        }
    }

  private:
    struct End {
        void operator()(EditLine *editor) const { el_end(editor); }
        void operator()(History *history) const { history_end(history); }
    };

    static char *showPrompt(EditLine *editor)
    {
        void *self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return const_cast<char *>(static_cast<Editor *>(self)->prompt_);
    }

    void recall()
    {
        HistEvent event;
        history(history_.get(), &event, H_SETSIZE, HISTORY_LENGTH);
        if (const char *home = getenv("HOME"))
            file_ = std::string{home} + "/.vexoctl_history";
        // A file that is new, or has grown too long, is written anew.
        const int length = history(history_.get(), &event, H_LOAD, file_.c_str());
        if (!file_.empty() && (length < 0 || length > HISTORY_LENGTH))
            history(history_.get(), &event, H_SAVE, file_.c_str());
    }

    std::unique_ptr<EditLine, End> editor_;
    std::unique_ptr<History, End> history_;
    std::string file_;
    const char *prompt_ = "";
};

} // namespace

Status Session::prompt()
{
    // Terminals speak UTF-8, also where the locale was never set.
    if (!setlocale(LC_CTYPE, "C.UTF-8"))
        setlocale(LC_CTYPE, "");
    Editor editor;
    compact_ = true;
    for (std::string line; !isOver_ && editor.read("vexoctl> ", line);) {
        for (std::string next; lex(line).isContinued && editor.read("> ", next);)
            line.replace(line.size() - 1, 1, next);
        if (!line.empty())
            editor.remember(line);
        execute(line);
    }
    if (!isOver_)
        std::cout << std::endl; // behind the prompt
    return SUCCESS;
}

} // namespace vexoctl
