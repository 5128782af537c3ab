"""Peers of the pings that are not well-behaved programs: they answer as the soak tells them, over TLS or plain."""

import contextlib
import socket
import ssl
import struct
import threading

READY, RETRY, FATAL = b"READY", b"STARTING", b"BROKEN"

# What a peer does with a ping. Those of the first row are answers, the second row breaks the exchange.
ANSWERS = ("retry", "fatal", "other", "slow", "dribble")
BREACHES = ("silent", "torn", "reset", "noise", "mute")

CONNECTION_LIMIT = 30  # seconds after which a forgotten connection ends
SLOWNESS = 0.6  # seconds; the pings wait for one


class Peer(threading.Thread):
    """A listener on the loopback address whose manner may be changed at any time.

    `on_shutdown` is called when the command SHUTDOWN came. A thread for each connection, none of which outlives the
    connection limit.
    """

    def __init__(self, certificate, on_shutdown):
        super().__init__(daemon=True)
        self.manner = "ready"
        self._on_shutdown = on_shutdown
        self._closing = threading.Event()
        self._context = None
        if certificate:
            self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            self._context.load_cert_chain(*certificate)
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def close(self):
        self._closing.set()
        self._listener.close()

    def _serve(self, connection):
        connection.settimeout(CONNECTION_LIMIT)
        with contextlib.suppress(OSError), connection:
            manner = self.manner
            if manner == "reset":
                self._break_off(connection)
            elif manner == "noise":
                connection.sendall(bytes(range(256)))
            elif manner == "mute":
                self._until_gone(connection)
            else:
                self._converse(connection, manner)

    def _converse(self, plain, manner):
        connection = self._context.wrap_socket(plain, server_side=True) if self._context else plain
        with connection:
            command = connection.recv(64)
            if command == b"SHUTDOWN":
                self._on_shutdown()
            elif command:
                self._answer(connection, manner)

    def _answer(self, connection, manner):
        if manner == "silent":
            self._until_gone(connection)
        elif manner == "torn":
            connection.sendall(READY[:2])
            self._break_off(connection)
        elif manner == "dribble":
            for byte in READY:
                connection.sendall(bytes([byte]))
        else:
            self._closing.wait(SLOWNESS if manner == "slow" else 0)
            connection.sendall({"retry": RETRY, "fatal": FATAL, "other": b"something else"}.get(manner, READY))
            self._until_gone(connection)

    @staticmethod
    def _break_off(connection):
        """Ends the connection with a reset, and a TLS stream without its closing notification."""
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        connection.close()

    @staticmethod
    def _until_gone(connection):
        while connection.recv(4096):
            pass
