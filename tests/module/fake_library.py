"""A package with the controller's library's name and habits, as source text."""

HOST = "blobstore://."

FAKE = """\
import logging, sys

calls = []
plan = {}     # where ("new", "login", "get", "logout") -> exception, or for "get" a list of (status, text)
key = "k3y"

class InvalidCredentialsError(Exception): pass
class SecurityStateError(Exception): pass
class HpIloInitialError(Exception): pass
class UnauthorizedLoginAttemptError(Exception): pass
class NewerLoginError(InvalidCredentialsError): pass
class HpIloChifPacketExchangeError(Exception): pass
class ChifDllMissingError(Exception): pass

class Answer:
    def __init__(self, status, read):
        self.status, self.read = status, read

def step(name):
    print("noise on stdout")
    print("noise on stderr", file=sys.stderr)
    logging.getLogger("redfish.rest").error("noise in the log")
    error = plan.get(name)
    if isinstance(error, BaseException):
        raise error

class RedfishClient:
    def __init__(self, **keywords):
        calls.append(("new", keywords))
        self.session_key = None
        step("new")

    def login(self):
        calls.append(("login",))
        step("login")
        self.session_key = key
        step("late")

    def get(self, path):
        calls.append(("get", path))
        step("get")
        answers = plan.get("get", [])
        status, text = answers.pop(0) if answers else (200, '{"@odata.id": "' + path + '", "Model": null}')
        return Answer(status, text)

    def logout(self):
        calls.append(("logout",))
        step("logout")
"""


def names(library):
    return [call[0] for call in library.calls]
