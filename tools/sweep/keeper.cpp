#include "keeper.h"

#include "run.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep
{

namespace
{

void tell(int output, const std::function<Json()> &work)
{
    Json told;
    try {
        told = work();
    } catch (const std::exception &error) {
        killAll();
        told = {{"trouble", error.what()}};
    }
    const std::string text = told.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = write(output, text.data() + at, text.size() - at);
        if (count < 0)
            return;
        at += static_cast<size_t>(count);
    }
}

} // namespace

Keeper::Keeper(const std::string &folder, const std::function<Json()> &work) : folder_{folder}
{
    int ends[2];
    if (mkdir(folder.c_str(), 0700) != 0 || pipe2(ends, O_CLOEXEC) != 0)
        throw Trouble(folder + ": " + strerror(errno));
    const pid_t sweep = getpid();
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        if (getppid() == sweep)
            tell(ends[1], work);
        _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    output_ = ends[0];
    if (process_ < 0)
        throw Trouble(std::string{"no process: "} + strerror(errno));
}

Keeper::~Keeper()
{
    close(output_);
    removeAll(folder_);
}

bool Keeper::read()
{
    char part[65536];
    const ssize_t count = ::read(output_, part, sizeof part);
    if (count > 0)
        text_.append(part, static_cast<size_t>(count));
    if (count > 0 || (count < 0 && errno == EINTR))
        return false;
    waitpid(process_, nullptr, 0);
    told_ = Json::parse(text_, nullptr, false);
    if (told_.is_discarded())
        throw Trouble("a run was ended from outside");
    if (told_.contains("trouble"))
        throw Trouble(told_["trouble"].get<std::string>());
    return true;
}

} // namespace sweep
