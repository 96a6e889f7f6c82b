"""The first process of a simulated host: makes its file tree, starts what it is told to and reaps what ends.

Run by namespace.py inside new mount and process-id namespaces. It is their init process: when it ends, for whatever
reason, the kernel ends every other process of the host, and the mounts go with the last of them. It ends as soon as the
other end of its control socket is closed, so a crashed or killed test leaves nothing behind.

Requests and reports are JSON texts, one per packet:
    first request   {"work": folder, "addresses": [...]}                    -> {"ready": true} or {"error": text}
    later requests  {"argv": [...], "env": {...}} + three descriptors       -> {"started": pid} or {"error": text}
    reports         {"ended": pid, "status": exit status, or -signal}       for every process that ends
"""

from __future__ import annotations

import json
import os
import select
import shutil
import signal
import socket
import sys
from typing import Any, Dict

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import hosttree  # noqa: E402  (the folder has to be on the path first)

PACKET = 1 << 17


def send(control: socket.socket, report: Dict[str, Any]) -> None:
    control.send(json.dumps(report).encode())


def start(request: Dict[str, Any], streams: "list[int]") -> Dict[str, Any]:
    """Starts one program in a session of its own, with clean signal dispositions."""
    argv, env = request["argv"], request["env"]
    program = shutil.which(argv[0], path=env.get("PATH", os.defpath))
    if program is None:
        return {"error": f"{argv[0]}: no such program in this host"}
    actions = [(os.POSIX_SPAWN_DUP2, stream, number) for number, stream in enumerate(streams)]
    try:
        pid = os.posix_spawn(program, argv, env, file_actions=actions, setsid=True, setsigmask=[],
                             setsigdef=[signal.SIGPIPE, signal.SIGXFSZ, signal.SIGCHLD, signal.SIGINT])
    except OSError as error:
        return {"error": f"{argv[0]}: {error.strerror}"}
    return {"started": pid}


def reap(control: socket.socket) -> None:
    """Reports every process that has ended, the adopted ones (a detached daemon) included."""
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return
        if pid == 0:
            return
        code = -os.WTERMSIG(status) if os.WIFSIGNALED(status) else os.WEXITSTATUS(status)
        send(control, {"ended": pid, "status": code})


def serve(control: socket.socket) -> None:
    wake_read, wake_write = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    signal.signal(signal.SIGCHLD, lambda _number, _frame: None)
    signal.set_wakeup_fd(wake_write)
    while True:
        ready, _, _ = select.select([control, wake_read], [], [])
        if control in ready:
            packet, streams, _, _ = socket.recv_fds(control, PACKET, 3)
            if not packet:
                return
            for stream in streams:
                os.set_inheritable(stream, False)  # a program gets them as its first three and in no other place
            send(control, start(json.loads(packet), list(streams)))
            for stream in streams:
                os.close(stream)
        if wake_read in ready:
            os.read(wake_read, 4096)
            reap(control)


def main() -> None:
    control = socket.socket(fileno=int(sys.argv[1]))
    control.set_inheritable(False)
    plan = json.loads(control.recv(PACKET))
    try:
        hosttree.mount_all(plan["work"])
        hosttree.add_addresses(plan["addresses"])
    except OSError as error:
        send(control, {"error": str(error)})
        return
    os.chdir("/")
    send(control, {"ready": True})
    serve(control)


if __name__ == "__main__":
    try:
        main()
    except (BrokenPipeError, ConnectionResetError):
        pass  # the test is gone, and so is this host
