"""The controller's address, read from the configured URL."""

from __future__ import annotations

import re
import urllib.parse

from _bayward_outcome import OTHER, Failure

_IN_BAND_SCHEME = "blobstore://"
IN_BAND_URL = f"{_IN_BAND_SCHEME}."
_HTTPS_PORT = 443
# The two ends of the virtual-NIC link, the same in every server.
VNIC_HOST = "16.1.15.2"
VNIC_CONTROLLER = "16.1.15.1"
# What a request target may hold unquoted; "%" too, as ids come quoted already.
_PATH_CHARACTERS = "/%:?[]@!$&'()*+,;=~"

_URL = re.compile(r"""
    (?:https://)?                                   # a bare host is meant as https
    (?: \[ (?P<ipv6> [0-9a-f:.]+ (?:%[\w.-]+)? ) \]
      | (?P<name> [a-z0-9_] [a-z0-9._-]* ) )
    (?: : (?P<port> [0-9]{1,5} ) )?
    /?
    """, re.VERBOSE | re.IGNORECASE | re.ASCII)


class Target:
    """Where the controller is: by HTTPS at `host` and `port`, or in-band when `in_band` is set."""

    __slots__ = ("in_band", "host", "port")

    def __init__(self, in_band: bool, host: str = "", port: int = 0) -> None:
        self.in_band = in_band
        self.host = host
        self.port = port

    def __eq__(self, other: object) -> bool:
        return (isinstance(other, Target)
                and (self.in_band, self.host, self.port) == (other.in_band, other.host, other.port))

    def __str__(self) -> str:
        if self.in_band:
            return IN_BAND_URL
        host = f"[{self.host}]" if ":" in self.host else self.host
        return f"https://{host}" if self.port == _HTTPS_PORT else f"https://{host}:{self.port}"


def parse_target(url: str) -> Target:
    """The target a URL names. Raises Failure(OTHER) saying what is wrong, never repeating what may hold a password."""
    text = url.strip()
    if text.lower().startswith(_IN_BAND_SCHEME):
        return Target(in_band=True)
    if "@" in text:
        raise Failure(OTHER, "The controller URL must not hold an account; register it with "
                             "\"baywardctl account set ACCOUNT\".")
    scheme, mark, _ = text.partition("://")
    if mark and scheme.lower() != "https":
        raise Failure(OTHER, f'The controller URL "{text}" must begin with https:// (or be {IN_BAND_URL}).')
    match = _URL.fullmatch(text)
    if match is None:
        raise Failure(OTHER, f'The controller URL "{text}" is not of the form https://HOST or https://HOST:PORT '
                             "(an IPv6 address in brackets).")
    port = int(match["port"]) if match["port"] else _HTTPS_PORT
    if not 1 <= port <= 65535:
        raise Failure(OTHER, f'The controller URL "{text}" has no port between 1 and 65535.')
    return Target(in_band=False, host=(match["ipv6"] or match["name"]).lower(), port=port)


def quoted_path(path: str) -> str:
    """The path with every character quoted that could end or split the request line it goes into."""
    return urllib.parse.quote(path, safe=_PATH_CHARACTERS, errors="surrogatepass")
