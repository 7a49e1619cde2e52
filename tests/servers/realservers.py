# SPDX-License-Identifier: MIT
"""Web servers of Debian's packages, each in the foreground with a folder of documents.

A Server is a context: it listens on a free port of loopback inside and is ended by its process id.
"""

import os
import pathlib
import shutil
import socket
import subprocess
import time

TIMEOUT = 60

# Its reply has no length.
CGI = """#!/bin/sh
printf 'Content-Type: text/plain\\r\\n\\r\\n'
exec cat "{documents}/unknown"
"""
CGI_PART = """#!/bin/sh
printf 'Status: 206 Partial Content\\r\\nContent-Type: text/plain\\r\\n\\r\\npart'
"""

NGINX = """
daemon off;
master_process off;
pid {work}/pid;
error_log stderr;
events {{ worker_connections 64; }}
http {{
    access_log off;
    types {{ text/plain txt; }}
    default_type application/octet-stream;
    client_body_temp_path {work}/body;
    proxy_temp_path {work}/proxy;
    fastcgi_temp_path {work}/fastcgi;
    uwsgi_temp_path {work}/uwsgi;
    scgi_temp_path {work}/scgi;
    keepalive_timeout 600;
    server {{
        listen 127.0.0.1:{port};
        root {documents};
        location = /unknown {{ ssi on; ssi_types *; }}
        location = /moved {{ return 302 /doc-1.txt; }}
        location = /part {{ return 206 part; }}
    }}
}}
"""

LIGHTTPD = """
server.modules = ("mod_redirect", "mod_alias", "mod_cgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "{documents}"
server.max-keep-alive-idle = 600
server.stream-response-body = 2
mimetype.assign = (".txt" => "text/plain", "" => "application/octet-stream")
url.redirect = ("^/moved$" => "/doc-1.txt")
url.redirect-code = 302
cgi.assign = (".sh" => "/bin/sh")
"""


def find(program):
    """Returns the path of a program, including those in root's search path only."""
    return shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin:/sbin")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def answers(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Server:
    """One server. `unknown` is the path of a document without a length; `refused` are paths that are
    answered with a redirection and, if the server supports it, with 206."""

    unknown = "/cgi-bin/unknown.sh"

    def __init__(self, documents, work):
        self.documents = pathlib.Path(documents)
        self.work = pathlib.Path(work)
        self.port = None
        self.process = None

    def config(self, text):
        path = self.work / "config"
        path.write_text(text.format(port=self.port, documents=self.documents, work=self.work))
        return str(path)

    def url(self, path):
        return f"http://127.0.0.1:{self.port}{path}"

    def start(self):
        """Returns False if another process has taken the port meanwhile."""
        self.port = free_port()
        with open(self.work / "log", "wb") as log:
            self.process = subprocess.Popen(self.command(), cwd=self.documents, stdout=log,
                                            stderr=log, stdin=subprocess.DEVNULL)
        end = time.monotonic() + TIMEOUT
        while self.process.poll() is None:
            if answers(self.port):
                return True
            assert time.monotonic() < end, f"{self.name} does not answer"
        return False

    def __enter__(self):
        for _ in range(5):
            if self.start():
                return self
        raise RuntimeError(f"{self.name}: {(self.work / 'log').read_text(errors='replace')}")

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(TIMEOUT)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


class Nginx(Server):
    name, program = "nginx", "nginx"
    type = "text/plain"
    unknown = "/unknown"
    refused = ["/moved", "/part"]

    def command(self):
        return [find(self.program), "-e", "stderr", "-p", str(self.work), "-c", self.config(NGINX)]


class Lighttpd(Server):
    name, program = "lighttpd", "lighttpd"
    type = "text/plain"
    refused = ["/moved", "/cgi-bin/part.sh"]

    def command(self):
        return [find(self.program), "-D", "-f", self.config(LIGHTTPD)]


class Busybox(Server):
    name, program = "busybox", "busybox"
    # It spells the name "Content-type".
    type = ""
    refused = ["/folder", "/cgi-bin/part.sh"]

    def command(self):
        return [find(self.program), "httpd", "-f", "-p", f"127.0.0.1:{self.port}",
                "-h", str(self.documents)]


class Python(Server):
    name, program = "python", "python3"
    type = ""
    refused = ["/folder"]

    def command(self):
        return ["/usr/bin/python3", "-m", "http.server", "--cgi", "--bind", "127.0.0.1",
                "--directory", str(self.documents), str(self.port)]


ALL = [Nginx, Lighttpd, Busybox, Python]
