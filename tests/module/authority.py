"""A certificate authority of the tests' own."""

from __future__ import annotations

import subprocess
from pathlib import Path
from typing import Tuple

_EC = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]


class Authority:
    """Signs certificates; its own is in `file`."""

    def __init__(self, folder: Path) -> None:
        folder.mkdir()
        self._folder = folder
        self.file, self._key = folder / "ca.pem", folder / "ca.key"
        _openssl("req", "-x509", *_EC, "-days", "2", "-subj", f"/CN=Authority {folder.name}", "-keyout", self._key,
                 "-out", self.file)

    def sign(self, name: str, alternatives: str, days: int = 2) -> Tuple[Path, Path]:
        """Certificate and key for the names, such as "IP:127.0.0.1,DNS:localhost"; expired when `days` is negative."""
        certificate, key, request = (self._folder / f"{name}.{kind}" for kind in ("pem", "key", "csr"))
        names = self._folder / f"{name}.names"
        names.write_text(f"subjectAltName={alternatives}\n", encoding="ascii")
        _openssl("req", "-new", *_EC, "-subj", f"/CN={name}", "-keyout", key, "-out", request)
        _openssl("x509", "-req", "-in", request, "-CA", self.file, "-CAkey", self._key, "-CAcreateserial", "-days", days,
                 "-extfile", names, "-out", certificate)
        return certificate, key


def _openssl(*arguments: object) -> None:
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True)
