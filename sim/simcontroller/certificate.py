"""A self-signed certificate, as controllers leave the factory with one."""

from __future__ import annotations

import ipaddress
import subprocess
from pathlib import Path
from typing import Tuple

from .errors import Failure


def make(folder: Path, host: str) -> Tuple[Path, Path]:
    """Certificate and key for the host in the folder; those of an earlier run are used again.

    The certificate also names 127.0.0.1, localhost and the address on the virtual NIC, and is its own authority.
    """
    certificate, key = folder / f"controller-{host}.crt", folder / f"controller-{host}.key"
    if certificate.exists() and key.exists():
        return certificate, key
    names = ["IP:127.0.0.1", "IP:16.1.15.1", "DNS:localhost"]
    try:
        extra = f"IP:{ipaddress.ip_address(host)}"
    except ValueError:
        extra = f"DNS:{host}"
    if extra not in names:
        names.append(extra)
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
               "-days", "3650", "-subj", "/O=Simulated controller/CN=ILOSIMULATED",
               "-addext", "subjectAltName=" + ",".join(names), "-keyout", str(key), "-out", str(certificate)]
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    except OSError as error:
        raise Failure(f"Cannot run openssl ({error}); install it or give --cert and --key.") from error
    if done.returncode != 0:
        last = (done.stderr.strip().splitlines() or ["no message"])[-1]
        raise Failure(f"openssl could not make a certificate in {folder} ({last}); give --cert and --key.")
    key.chmod(0o600)
    return certificate, key
