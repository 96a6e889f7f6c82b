"""With a CA file nobody logs in to a controller whose certificate fails; without one everything is as before."""

from __future__ import annotations

import os
import socket
import ssl

import pytest
from authority import Authority
from raw_server import RawServer, answer, with_sessions

import _bayward_wire

SYSTEMS = "/redfish/v1/Systems/"
SCRIPT = with_sessions(lambda request, peer: peer.send(answer(body={"Id": "good"})) or True)


@pytest.fixture(scope="module")
def authority(tmp_path_factory):
    return Authority(tmp_path_factory.mktemp("authorities") / "right")


@pytest.fixture(scope="module")
def stranger(tmp_path_factory):
    return Authority(tmp_path_factory.mktemp("authorities") / "wrong")


@pytest.fixture(scope="module")
def certificates(authority):
    return {"right": authority.sign("right", "IP:127.0.0.1,DNS:localhost"),
            "other name": authority.sign("other", "IP:192.0.2.1,DNS:elsewhere.test"),
            "expired": authority.sign("expired", "IP:127.0.0.1", days=-1)}


@pytest.fixture
def serve(certificates):
    servers = []

    def start(name="right"):
        servers.append(RawServer(SCRIPT, certificates[name], "127.0.0.1"))
        return servers[-1]

    yield start
    for server in servers:
        server.stop()


@pytest.fixture
def configured(module):
    """The module; configured for the test only."""
    yield module
    module.configure({})


def log_in(module, server, ca_file):
    module.configure({"ca file": str(ca_file)})
    return module.init(server.url, "user", "s3cret-pass")


def reported(caplog):
    """The one line that was said, which holds no secret."""
    line, = [record.getMessage() for record in caplog.records]
    assert "s3cret" not in line and "user" not in line
    return line


def test_certificate_of_the_authority_is_accepted(configured, serve, authority, caplog):
    server = serve()
    assert log_in(configured, server, authority.file) == 200
    assert configured.get(SYSTEMS) == '{"Id":"good"}'
    assert not caplog.records


def test_host_name_is_compared_like_an_address(configured, serve, authority):
    server = serve()
    configured.configure({"ca file": str(authority.file)})
    assert configured.init(f"https://localhost:{server.port}", "user", "pass") == 200


def test_the_certificate_itself_will_do(configured, serve, certificates):
    """A controller's own certificate, signed by an authority that nobody has."""
    assert log_in(configured, serve(), certificates["right"][0]) == 200


@pytest.mark.parametrize("name, reason", [
    ("other name", "IP address mismatch"),
    ("expired", "certificate has expired"),
])
def test_certificate_that_fails_is_another_error_with_its_reason(configured, serve, authority, caplog, name, reason):
    server = serve(name)
    assert log_in(configured, server, authority.file) == 10001
    assert reason in reported(caplog)
    assert not server.requests, "the account must not reach a controller that is not trusted"


def test_certificate_of_another_authority_is_another_error(configured, serve, stranger, caplog):
    server = serve()
    assert log_in(configured, server, stranger.file) == 10001
    assert "The controller's certificate is not trusted: unable to get local issuer certificate" in reported(caplog)
    assert not server.requests
    configured.configure({"ca file": ""})
    assert configured.init(server.url, "user", "pass") == 200, "as before without a CA file"


def test_virtual_nic_functions_verify_too(configured, serve, stranger):
    server = serve()
    configured.configure({"ca file": str(stranger.file)})
    for function in (configured.get_vnic, configured.get_v1, configured.get_prodgen):
        assert function(server.url, "user", "pass") == 10001
    assert not server.requests


def unreadable(path):
    if os.geteuid() == 0:
        pytest.skip("root reads everything")
    path.write_text("x")
    path.chmod(0)


@pytest.mark.parametrize("make, reason", [
    (lambda path: None, "No such file or directory"),
    (unreadable, "Permission denied"),
    (lambda path: path.mkdir(), "it is no file"),
    (os.mkfifo, "it is no file"),
    (lambda path: path.write_text(""), "no certificate in PEM form"),
    (lambda path: path.write_bytes(b"\x30\x82\x01\x0a\x02\x82" * 50), "no certificate in PEM form"),
    (lambda path: path.write_text("-----BEGIN CERTIFICATE-----\nnonsense\n-----END CERTIFICATE-----\n"),
     "no certificate in PEM form, or a damaged one"),
], ids=["missing", "unreadable", "folder", "pipe", "empty", "binary", "damaged"])
def test_ca_file_of_no_use_is_said_once_in_each_login(configured, serve, tmp_path, make, reason):
    server = serve()
    make(tmp_path / "ca.pem")
    for _ in range(2):
        assert log_in(configured, server, tmp_path / "ca.pem") == 10001
        assert reason in configured.take_report()
        for expected in ("There is no session with the controller.", "", ""):
            assert configured.get(SYSTEMS) == 10001
            assert configured.take_report() == expected
    assert server.connections == 0


def test_key_alone_is_no_ca_file(configured, serve, certificates, caplog):
    assert log_in(configured, serve(), certificates["right"][1]) == 10001
    assert "no certificate in PEM form" in reported(caplog)


@pytest.mark.parametrize("path", ["ca.pem", "./ca.pem", " /ca.pem", "~/ca.pem"])
def test_relative_ca_file_is_refused(configured, serve, authority, tmp_path, monkeypatch, caplog, path):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "ca.pem").write_bytes(authority.file.read_bytes())
    assert log_in(configured, serve(), path) == 10001
    assert "no absolute path" in reported(caplog)


def test_ca_file_is_read_at_each_login(configured, serve, authority, stranger, tmp_path):
    server = serve()
    file = tmp_path / "ca.pem"
    file.write_bytes(stranger.file.read_bytes())
    assert log_in(configured, server, file) == 10001
    file.write_bytes(stranger.file.read_bytes() + authority.file.read_bytes())
    assert configured.init(server.url, "user", "pass") == 200, "a file may hold several"
    file.unlink()
    assert configured.get(SYSTEMS) == '{"Id":"good"}'
    assert configured.init(server.url, "user", "pass") == 10001


def test_reason_is_handed_over_once(configured, serve, stranger):
    configured.take_report()
    log_in(configured, serve(), stranger.file)
    assert "not trusted" in configured.take_report()
    assert configured.take_report() == ""


def test_without_a_ca_file_nothing_is_verified():
    context = _bayward_wire.make_tls_context()
    assert context.verify_mode == ssl.CERT_NONE and not context.check_hostname


def test_virtual_nic_link_is_verified_without_the_name_but_left_only_from_its_own_end(configured, authority, monkeypatch,
                                                                                     caplog):
    http = _bayward_wire.Http(_bayward_wire.Target(False, "16.1.15.1", 443), str(authority.file))
    assert http._context.verify_mode == ssl.CERT_REQUIRED and not http._context.check_hostname
    bound = []
    monkeypatch.setattr(socket.socket, "bind", lambda sock, address: bound.append(address))
    monkeypatch.setattr(socket.socket, "connect", lambda sock, address: bound.append(address))
    configured.configure({"ca file": str(authority.file)})
    assert configured.init("https://16.1.15.1", "user", "pass") == 10001
    assert bound == [("16.1.15.2", 0), ("16.1.15.1", 443)]


@pytest.mark.parametrize("settings, wanted", [({}, ""), ({"ca file": "/x", "later": "1"}, "/x")])
def test_settings_that_are_unknown_or_absent_are_no_matter(configured, settings, wanted):
    configured.configure({"ca file": "/before"})
    configured.configure(settings)
    assert configured._ca_file == wanted
