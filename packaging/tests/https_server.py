"""Serves a directory by HTTPS on a free port of the loopback interface and prints the port.

Usage: https_server.py <directory> <certificate and key>
"""

import functools
import http.server
import ssl
import sys

directory, certificate = sys.argv[1:]
handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=directory)
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(certificate)
server.socket = context.wrap_socket(server.socket, server_side=True)
print(server.server_port, flush=True)
server.serve_forever()
