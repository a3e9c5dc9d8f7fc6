// Lines of a script, run on a simulated device of this process's own.
#include <catalog.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include <sys/time.h>

// Should the simulated device not take the library's clock setting, the host's must not be set.
int settimeofday(const timeval *, const struct timezone *) noexcept
{
    return 0;
}

namespace
{

using namespace vexoctl;

// What waits for time to pass or for another process, and what reads the host's files.
bool isLeftOut(const Words &words)
{
    const auto names = [&](const char *text) {
        for (const std::string &word : words)
            if (word.find(text) != std::string::npos)
                return true;
        return false;
    };
    return words[0] == "watch" || words[0] == "follow" || words[0] == "wait" || names("=@") ||
           names("delay") || names("hang") || names("effect=") || names("advance") ||
           names("burst");
}

class Discarded : public std::streambuf
{
  protected:
    int overflow(int c) override { return c == EOF ? 0 : c; }
    std::streamsize xsputn(const char *, std::streamsize count) override { return count; }
};

[[noreturn]] void fail(const std::string &what, const std::string &line)
{
    fprintf(stderr, "%s: %s\n", what.c_str(), line.c_str());
    abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    unsetenv("KV_SIM_DEVICE");
    // Never destroyed: the stream is flushed once more after everything else has been.
    static auto *const discarded = new Discarded;
    std::cerr.rdbuf(discarded);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::istringstream lines{std::string{reinterpret_cast<const char *>(data), size}};
    Session session{{.json = true}, true};
    std::ostringstream answer;
    std::streambuf *const usual = std::cout.rdbuf(answer.rdbuf());
    session.execute(Words{"sim", "reset"});
    for (std::string line; std::getline(lines, line);) {
        const Words words = lex(line).words;
        completions(words);
        if (words.empty() || isLeftOut(words))
            continue;
        // Whatever it was, it is answered with one document; but for what is text by nature.
        answer.str("");
        session.execute(line);
        if (words[0] == "metrics" || words[0] == "complete")
            continue;
        const std::string text = answer.str();
        if (std::count(text.begin(), text.end(), '\n') != 1 || !Json::accept(text))
            fail("no document: " + text, line);
    }
    std::cout.rdbuf(usual);
    return 0;
}
