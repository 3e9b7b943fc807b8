"""A client of simZR4410's control interface, for the system tests and the soak test."""

import http.client
import json
import socket

from device import TIME_LIMIT

# Requests of stalled clients: EVENTS, VIEW and WAIT keep their connections open, HALF is never completed.
EVENTS = "GET /events HTTP/1.1\r\nHost: x\r\n\r\n"
VIEW = "GET /view/events HTTP/1.1\r\nHost: x\r\n\r\n"
WAIT = "GET /wait?timeout_ms=600000 HTTP/1.1\r\nHost: x\r\n\r\n"
HALF = "POST /supply HTTP/1.1\r\nContent-Le"


class Client(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("device", timeout=TIME_LIMIT)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(TIME_LIMIT)
        self.sock.connect(self.path)

    def __call__(self, method, path, body=None):
        """Sends a request; returns the status and the JSON of the answer."""
        self.request(method, path, body)
        response = self.getresponse()
        return response.status, json.load(response)

    def send_text(self, text):
        """Sends text, not necessarily a whole request, and reads nothing. Returns the socket."""
        self.connect()
        self.sock.sendall(text.encode())
        return self.sock
