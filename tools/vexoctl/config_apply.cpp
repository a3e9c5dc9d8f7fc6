#include "config_apply.h"

namespace vexoctl::config
{

namespace
{

// Performs it; false when it fails.
bool perform(Device &device, const Step &step, std::vector<std::string> &done,
             std::vector<Trouble> &failed)
{
    Json outputs;
    const vexoResult result = device.call(*step.operation, step.words, outputs);
    if (result.rc == VEXO_RC_OK)
        done.push_back(commandOf(step));
    else
        failed.push_back({commandOf(step), result.message, result.rc});
    return result.rc == VEXO_RC_OK;
}

std::string presence(const Json &value)
{
    return value.is_null() ? "isn't there" : "is there";
}

// What the object is set to otherwise than expected.
void compare(Device &device, const Key &key, const Settings &expected, std::vector<Trouble> &found)
{
    const Reading now = read(device, key);
    if (now.settings && now.settings->is_null())
        found.push_back({nameOf(key), "can't be read: " + now.reason});
    for (const Difference &difference : differences(key, expected, now.settings))
        if (difference.field.empty())
            found.push_back({nameOf(key), presence(difference.b)});
        else
            found.push_back({nameOf(key) + " " + difference.field,
                             "is " + readable(key, difference.field, difference.b) + ", not " +
                                 readable(key, difference.field, difference.a)});
}

} // namespace

Json listOf(const std::vector<Trouble> &troubles)
{
    Json list = Json::array();
    for (const auto &[what, text, rc] : troubles)
        list.push_back({{"what", what}, {"text", text}, {"rc", rc ? Json(rc) : Json{}}});
    return list;
}

Names undoLines(const Report &report)
{
    Names lines;
    for (const std::string &command : report.undone)
        lines.push_back("undone by: " + command);
    for (const auto &[what, text, rc] : report.notUndone)
        lines.push_back("not undone: " + what + ": " + text);
    return lines;
}

void Undo::run(Report &report)
{
    Interruptible::goOn();
    std::map<Key, Settings> first;
    for (const auto &[key, before] : steps_)
        first.emplace(key, before);
    for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) {
        const auto &[key, before] = *step;
        try {
            for (const Step &back : planObject(key, read(device_, key).settings, before))
                if (!perform(device_, back, report.undone, report.notUndone) &&
                    (back.phase == Phase::destroy || back.phase == Phase::create))
                    break; // All else needs the object.
        } catch (const std::runtime_error &error) {
            report.notUndone.push_back({nameOf(key), error.what()});
        }
    }
    for (const auto &[key, before] : first)
        try {
            compare(device_, key, before, report.notUndone);
        } catch (const Stopped &stopped) {
            report.notUndone.push_back({nameOf(key), stopped.what()});
        }
    steps_.clear();
}

Report apply(Device &device, const Plan &plan, bool keepGoing)
{
    Report report;
    for (const auto &[key, reason] : plan.untold)
        report.failed.push_back({nameOf(key), reason});
    if (!plan.untold.empty() && !keepGoing)
        return report;
    Undo undo{device};
    std::map<Key, Settings> expected;
    std::string running;
    try {
        for (const Step &step : plan.steps) {
            running = commandOf(step);
            undo.remember(step.key, step.before);
            expected[step.key] = step.after;
            if (!perform(device, step, report.done, report.failed) && !keepGoing)
                break;
        }
        if (report.failed.empty() || keepGoing)
            for (const auto &[key, after] : expected) {
                running = nameOf(key);
                compare(device, key, after, report.failed);
            }
        Interruptible::check();
    } catch (const Stopped &stopped) {
        report.failed.push_back({running, stopped.what()});
        report.status = stopped.status;
    }
    if (!report.failed.empty() && !keepGoing)
        undo.run(report);
    return report;
}

} // namespace vexoctl::config
