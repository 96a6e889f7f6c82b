"""The two ways anything here goes wrong, and the error bodies a controller answers."""

from __future__ import annotations

from typing import Any, Dict

from simerrors import Failure, UseError

__all__ = ["ErrorBodies", "Failure", "UseError"]

# Version of the "Base" message registry by controller generation.
_BASE_REGISTRY = {5: "Base.1.4", 6: "Base.1.12", 7: "Base.1.18"}


class ErrorBodies:
    """Error bodies in the form of one controller generation: message ids and arguments, no message text."""

    def __init__(self, generation: int) -> None:
        self._base = _BASE_REGISTRY[generation]

    def base(self, name: str, *args: str) -> Dict[str, Any]:
        """A body with a message of the Base registry."""
        return self._body(f"{self._base}.{name}", args)

    def missing(self, path: str) -> Dict[str, Any]:
        return self.base("ResourceMissingAtURI", path)

    def not_ready(self, seconds: int = 30) -> Dict[str, Any]:
        return self._body("iLO.2.30.ResourceNotReadyRetry", (str(seconds),))

    def unauthorized_login(self) -> Dict[str, Any]:
        return self._body("iLO.2.34.UnauthorizedLoginAttempt", ())

    @staticmethod
    def _body(message_id: str, args: Any) -> Dict[str, Any]:
        entry: Dict[str, Any] = {"MessageId": message_id}
        if args:
            entry = {"MessageArgs": list(args), "MessageId": message_id}
        return {"error": {"code": "iLO.0.10.ExtendedInfo",
                          "message": "See @Message.ExtendedInfo for more information.",
                          "@Message.ExtendedInfo": [entry]}}
