# SPDX-License-Identifier: MIT
"""HTTP servers on loopback for the tests of the command: a real one and a hostile one."""

import functools
import http.server
import socket
import struct
import threading

TIMEOUT = 60


def refused_port():
    """Returns a port on which no process listens."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


class _Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class Documents:
    """A directory served by Python's http.server."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir()
        self._server = http.server.ThreadingHTTPServer(
            ("127.0.0.1", 0), functools.partial(_Quiet, directory=str(folder)))
        self.url = f"http://127.0.0.1:{self._server.server_port}/"
        self._thread = threading.Thread(target=self._server.serve_forever,
                                        kwargs={"poll_interval": 0.01})

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()

    def add(self, name, content):
        """Creates a document and returns its URL."""
        (self.folder / name).write_bytes(content)
        return self.url + name


def reply(body=b"", length=None, status="200 OK", **fields):
    """Returns the bytes of a reply; without a length it announces none."""
    lines = [f"HTTP/1.0 {status}", *(f"{name.replace('_', '-')}: {value}"
                                     for name, value in fields.items())]
    if length is not None:
        lines.append(f"Content-Length: {length}")
    return "\r\n".join([*lines, "", ""]).encode() + body


class ScriptedServer:
    """Answers each path by a script: bytes to send, the name of a step, or an Event to wait for.

    "wait" waits until the client disconnects, "reset" closes with a reset. After its last step a
    connection is closed. `requests` are the requested paths; `gone` is released whenever the client
    of a "wait" has disconnected.
    """

    def __init__(self):
        self._scripts, self.requests = {}, []
        self.gone = threading.Semaphore(0)
        self._over = threading.Event()
        self._threads = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self._listener.getsockname()[1]}/"
        self._accepting = threading.Thread(target=self._accept)

    def __enter__(self):
        self._accepting.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        # Wakes accept(), which closing the socket would not.
        socket.create_connection(self._listener.getsockname()).close()
        for thread in [self._accepting, *self._threads]:
            thread.join()
        self._listener.close()

    def add(self, name, *steps):
        """Sets the script of a path and returns its URL."""
        self._scripts["/" + name] = steps
        return self.url + name

    def _accept(self):
        while True:
            connection = self._listener.accept()[0]
            if self._over.is_set():
                connection.close()
                return
            self._threads.append(threading.Thread(target=self._serve, args=(connection,)))
            self._threads[-1].start()

    def _serve(self, connection):
        with connection:
            connection.settimeout(TIMEOUT)
            request = b""
            while not request.endswith(b"\r\n\r\n"):
                piece = connection.recv(4096)
                if not piece:
                    return
                request += piece
            path = request.split()[1].decode()
            self.requests.append(path)
            try:
                for step in self._scripts[path]:
                    self._step(connection, step)
            except ConnectionError:
                pass  # the client disconnected, which the tests check on its side

    def _step(self, connection, step):
        if step == "wait":
            try:
                while connection.recv(4096):
                    pass
            except ConnectionError:
                pass
            self.gone.release()
        elif step == "reset":
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        elif isinstance(step, threading.Event):
            step.wait(TIMEOUT)
        else:
            connection.sendall(step)

    def client_went(self):
        """Returns whether the client of one "wait" closes its connection in time."""
        return self.gone.acquire(timeout=TIMEOUT)
