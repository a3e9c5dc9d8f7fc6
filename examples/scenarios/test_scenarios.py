"""What agents meet in the field, one test each, for any agent: see README.md."""

import vexo_cmi
from vexo_cmi import Document, PweAction, PweParams, UpgradeInfo, UpgradeMode, UpgradeState


def delete(pseudowire):
    """As somebody else would."""
    vexo_cmi.pwe_params_set(PweParams(pweAction=PweAction.DELETE), pseudowire)


def test_reconcile_after_a_restart(subject):
    """What others change while the agent is away, it puts right when it is back."""
    with subject.start():
        subject.wait_provisioned()
    delete(subject.pseudowires[-1])
    vexo_cmi.pdh_cable_len_set(7, subject.ports[0])
    with subject.start():
        subject.wait_provisioned()


def test_lost_answer_at_a_create(gateway, subject):
    """The device has made it, and says that it has not."""
    lost = gateway.lose("config_add_pw", object=subject.pseudowires[0], times=1)
    with subject.start():
        subject.wait_provisioned()
    assert lost.met == 1


def test_lost_alarm(gateway, subject):
    """An event does not come; the alarm is told of all the same."""
    port = subject.ports[0]
    with subject.start() as running:
        gateway.alarm("pdh", port, 0x4)
        subject.wait_alarm(running, "pdh", port, 0x4)
        lost = gateway.drop(times=1)
        gateway.alarm("pdh", port, 0x5)
        assert lost.met == 1
        subject.wait_alarm(running, "pdh", port, 0x5)


def test_storm_of_alarms(gateway, subject):
    """A thousand events at once are dealt with in time, and what they end with is told."""
    port = subject.ports[0]
    with subject.start() as running:
        for _ in range(500):
            gateway.alarm("pdh", port, 0x1)
            gateway.alarm("pdh", port, 0x3)
        gateway.alarm("pdh", port, 0x2)
        gateway.wait_handled(subject.limit)
        subject.wait_alarm(running, "pdh", port, 0x2)
        assert gateway.pending == (0, 0)


def test_day_of_pm(gateway, subject):
    """Each report of a day is told: 96 quarters of an hour, 24 hours, and the day."""
    gateway.clock.stop()
    gateway.ignore("settimeofday")  # a keep-alive would set the clock back to the time of its sender
    with subject.start() as running:
        gateway.clock.advance(days=1)
        subject.wait_reports(running, "pdh", subject.ports[0], _1=96, _2=24, _3=1)


def test_hang(gateway, subject):
    """A call never returns. The agent ends with a failure, so that it is started again, or goes on
    with all else."""
    port = subject.ports[0]
    gateway.hang(object=port, kind="pdh", times=1)
    stuck = subject.start(patience=0.1, ready=False)
    gateway.wait_for(lambda: gateway.hanging or not stuck.running, subject.limit)
    content = subject.site.content
    others = Document({**content, "pdh": {key: value for key, value in content["pdh"].items() if key != str(port)}})
    gateway.wait_for(lambda: not stuck.running or gateway.config == others, subject.limit)
    if stuck.running:
        delete(subject.pseudowires[0])
        subject.wait_provisioned(others)
    assert stuck.status != 0
    gateway.clear_faults()
    with stuck if stuck.running else subject.start():
        subject.wait_provisioned()


def test_reboot_while_provisioning(gateway, subject):
    """What was set before is gone with the device's configuration."""
    gateway.hang("config_add_pw", object=subject.pseudowires[0], times=1)
    with subject.start(ready=False) as running:
        gateway.wait_hanging()
        gateway.reboot(keep_configuration=False)
        subject.wait_provisioned()
        gateway.alarm("pdh", subject.ports[0], 0x1)
        subject.wait_alarm(running, "pdh", subject.ports[0], 0x1)


def test_clock_back(gateway, subject):
    """The device's clock is a day behind all of a sudden. Nothing waits until it is there again."""
    port, pseudowire = subject.ports[0], subject.pseudowires[0]
    gateway.clock.stop()
    with subject.start() as running:
        subject.wait_provisioned()
        gateway.clock.set(gateway.clock.now.timestamp() - 86400)
        gateway.alarm("pdh", port, 0x1)
        subject.wait_alarm(running, "pdh", port, 0x1)
        gateway.clock.advance(minutes=15)
        subject.wait_reports(running, "pdh", port, _1=1)
        delete(pseudowire)
        subject.wait_provisioned()


def test_upgrade_failed(gateway, subject):
    """Somebody loads software, and that fails: the device is to be kept as before."""
    gateway.fail_upgrade(3)
    gateway.clock.stop()
    with subject.start() as running:
        vexo_cmi.misc_upgrade_init(UpgradeInfo(mode=UpgradeMode.MODE_1, fileName="load.bin"))
        gateway.clock.advance(seconds=15)
        assert vexo_cmi.misc_upgrade_info_get().state == UpgradeState.STATE_6
        delete(subject.pseudowires[0])
        subject.wait_provisioned()
        gateway.alarm("pdh", subject.ports[0], 0x1)
        subject.wait_alarm(running, "pdh", subject.ports[0], 0x1)


def test_overflow(gateway, subject):
    """More events than the device keeps: the oldest are lost, one of them about a port of which no
    other will tell."""
    with subject.start() as running:
        running.suspend()
        gateway.alarm("pdh", subject.ports[0], 0x1)
        gateway.send_alarm("pwe", subject.pseudowires[0], 0, 0, count=5000)
        assert gateway.pending[1] > 0
        running.resume()
        subject.wait_alarm(running, "pdh", subject.ports[0], 0x1)


def test_two_agents_on_one_device(subject):
    """Both are started by mistake. They come to agree, and to rest."""
    with subject.start(ready=False) as one, subject.start() as other:
        subject.wait_provisioned()
        subject.wait_at_rest(one, other)
        assert one.running and other.running


def test_killed_anywhere(gateway, subject):
    """Killed while it provisions, at any of its calls, it goes on when it is started again."""
    with subject.start() as whole:
        functions = [call.function for call in gateway.calls()
                     if call.process == whole.pid and call.function.startswith("config_")]
    place = subject.random.randrange(len(functions))
    gateway.reset()
    gateway.hang(functions[place], nth=functions[:place + 1].count(functions[place]))
    killed = subject.start(ready=False)
    gateway.wait_hanging()
    killed.kill()
    gateway.clear_faults()
    with subject.start():
        subject.wait_provisioned()
