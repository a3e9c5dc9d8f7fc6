// The objects of a document, each of which brings the device to have it as wanted.
#pragma once

#include "document.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <vector>

struct Failure : std::runtime_error {
    using runtime_error::runtime_error;
};

// Since when the library has been at work: there are devices that never answer.
using Clock = std::chrono::steady_clock;
inline std::atomic<Clock::time_point> workingSince{Clock::time_point::max()};

void work(auto part)
{
    workingSince = Clock::now();
    part();
    workingSince = Clock::time_point::max();
}

// An operation tells its outcome by its last argument; here it throws.
template <class... Parameters, class... Arguments>
void call(const char *what, void (*operation)(Parameters...), Arguments... arguments)
{
    vexoResult result;
    work([&] { operation(arguments..., &result); });
    if (result.rc != VEXO_RC_OK)
        throw Failure{std::string{what} + ": " + result.message};
}

class Object
{
  public:
    Object(std::string itsName, uint32_t itsId, const Json &document)
        : name{std::move(itsName)}, id{itsId}, wanted(document)
    {
    }
    virtual ~Object() = default;

    // What is wrong with it; empty when it is as wanted. It is changed, if it may be; whether that
    // succeeded the next look tells, and not the operation, whose answer may have been lost.
    std::string look(bool mayChange)
    {
        std::string wrong;
        try {
            const Json now = read();
            wrong = now.is_null() ? "isn't there" : difference(now, wanted);
            if (wrong.empty() || !mayChange)
                return wrong;
            if (read() != now) // one of them is garbage
                return "two answers differ";
            printf("change %s: %s\n", name.c_str(), wrong.c_str());
            change(now);
        } catch (const Failure &failure) {
            wrong += (wrong.empty() ? "" : "; ") + std::string{failure.what()};
        }
        return wrong;
    }
    virtual void alarms(uint32_t *bits) const = 0;

    const std::string name;

  protected:
    virtual Json read() const = 0; // null, where it isn't there
    virtual void change(const Json &now) const = 0;

    const uint32_t id;
    const Json wanted;
};

class Port : public Object
{
  public:
    using Object::Object;
    using Params = vexoPdhParamsIn;
    using Beside = vexoLpbk;
    static constexpr const char *BESIDE = "loopback";

    void alarms(uint32_t *to) const override { call("reading", vexo_cmi_pdh_alarms_get, to, id); }

  private:
    Json read() const override
    {
        vexoPdhParamsOut params;
        call("reading", vexo_cmi_pdh_params_get, &params, id);
        return params;
    }
    void change(const Json &) const override
    {
        const auto params = wanted.get<Params>();
        call("setting", vexo_cmi_pdh_params_set, &params, id);
        call("setting the loopback", vexo_cmi_pdh_lpbk_set, wanted[BESIDE].get<Beside>(), id);
    }
};

class Pseudowire : public Object
{
  public:
    using Object::Object;
    using Params = vexoPweParams;
    using Beside = uint32_t;
    static constexpr const char *BESIDE = "force";

    void alarms(uint32_t *to) const override { call("reading", vexo_cmi_pwe_alarms_get, to, id); }

  private:
    Json read() const override
    {
        vexoPweParamsInfo info;
        uint32_t force = 0;
        call("reading", vexo_cmi_pwe_params_get, &info, id);
        if (info.pweAction != VEXO_PWE_ACTION_CREATE)
            return {};
        call("reading forced AIS", vexo_cmi_pwe_atm_force_ais_get, &force, id);
        Json now = info;
        now[BESIDE] = force;
        return now;
    }
    void change(const Json &now) const override
    {
        auto params = wanted.get<Params>();
        params.pweAction = now.is_null()                         ? VEXO_PWE_ACTION_CREATE
                           : now["pweType"] == wanted["pweType"] ? VEXO_PWE_ACTION_MODIFY
                                                                 : VEXO_PWE_ACTION_DELETE;
        call("setting", vexo_cmi_pwe_params_set, &params, id);
    }
};

class Group : public Object
{
  public:
    using Object::Object;
    using Params = vexoImaGroupSet;
    using Beside = std::vector<uint32_t>;
    static constexpr const char *BESIDE = "linkIds";

    void alarms(uint32_t *bits) const override
    {
        call("reading", vexo_cmi_ima_alarms_get, bits, VEXO_IMA_TYPE_GROUP, id);
    }

  private:
    // Nothing tells a group that isn't there from one that can't be read; to make one that is there
    // is refused.
    Json read() const override
    try {
        vexoImaParams params;
        call("reading", vexo_cmi_ima_get, &params, id);
        Json now = params;
        now[BESIDE] = Json::array();
        for (uint32_t i = 0; i < std::min<uint32_t>(params.linkCount, VEXO_IMA_LINK_MAX); ++i)
            now[BESIDE].push_back(params.links[i].linkId);
        return now;
    } catch (const Failure &) {
        return {};
    }
    void change(const Json &now) const override
    {
        auto group = wanted.get<Params>();
        group.imaAction = now.is_null() ? VEXO_IMA_ACTION_CREATE : VEXO_IMA_ACTION_MODIFY;
        call("setting", vexo_cmi_ima_set, &group, id);

        // A link is added at the end: from the first difference on, all go, and come again.
        const auto has = now.is_null() ? Beside{} : now[BESIDE].get<Beside>();
        const auto links = wanted[BESIDE].get<Beside>();
        auto [kept, next] = std::ranges::mismatch(has, links);
        for (auto link = has.end(); link != kept;)
            call("deleting a link", vexo_cmi_ima_lnk_delete, *--link, id);
        while (next != links.end())
            call("adding a link", vexo_cmi_ima_lnk_add, *next++, id);
    }
};
