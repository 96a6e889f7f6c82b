"""The module in an interpreter of its own: what it brings along and what it leaves behind."""

from __future__ import annotations

import json
import subprocess
import sys

from conftest import MODULE_FOLDER

PROGRAM = """
import json, sys, threading
sys.path.insert(0, sys.argv[1])
sys.dont_write_bytecode = True
def resident():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))
import baywardilorest as module
told = {"imported": sorted(sys.modules), "after_import": resident()}
told["codes"] = [module.init(*sys.argv[2:5])]
text = module.get("/redfish/v1/Systems/")
told["codes"].append(type(text).__name__)
told["after_login"] = resident()
told["threads"] = threading.active_count()
if sys.argv[5] == "close":
    module.close()
print(json.dumps(told))
"""


def run(sim, account, ending="close"):
    return subprocess.run([sys.executable, "-c", PROGRAM, str(MODULE_FOLDER), sim.url, account, sim.password, ending],
                          capture_output=True, text=True, timeout=60)


def test_interpreter_stays_small_single_threaded_and_silent(ilo5):
    done = run(ilo5, ilo5.account)
    told = json.loads(done.stdout)
    assert done.returncode == 0 and done.stderr == ""
    assert told["codes"] == [200, "str"] and told["threads"] == 1
    assert not {"subprocess", "redfish", "urllib.request", "asyncio", "_bayward_inband"} & set(told["imported"])
    assert told["after_login"] < 25 * 1024


def test_ending_without_close_is_silent(ilo5):
    done = run(ilo5, ilo5.account, "leave")
    assert done.returncode == 0 and done.stderr == ""


def test_failures_put_no_traceback_on_the_terminal(ilo5):
    done = run(ilo5, "wrong")
    assert json.loads(done.stdout)["codes"] == [401, "int"]
    assert "Traceback" not in done.stderr and len(done.stderr.splitlines()) == 2


def test_contract_functions_are_there():
    import baywardilorest

    for name in ("init", "get", "is_ip_assigned", "get_vnic", "get_v1", "get_prodgen", "close"):
        assert callable(getattr(baywardilorest, name)) and getattr(baywardilorest, name).__doc__
