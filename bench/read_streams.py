#!/usr/bin/env python3
"""Reads the page's stream of a server several times at once, as fast as it is sent: read_streams.py ADDRESS COUNT."""

import selectors
import socket
import sys
from urllib.parse import urlsplit


def main():
    address = urlsplit(sys.argv[1])
    selector = selectors.DefaultSelector()
    for _ in range(int(sys.argv[2])):
        connection = socket.create_connection((address.hostname, address.port))
        connection.sendall(f"GET {address.path}stream HTTP/1.1\r\nHost: {address.netloc}\r\n\r\n".encode())
        selector.register(connection, selectors.EVENT_READ)
    while True:
        for key, _ in selector.select():
            if not key.fileobj.recv(1 << 16):
                return


if __name__ == "__main__":
    main()
