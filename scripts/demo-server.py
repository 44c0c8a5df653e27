#!/usr/bin/env python3
"""The demo's loopback ad server: serves examples/*.xml under /vast/ with PORT replaced by its own
port, answers every other GET (the pixels) with 204 and prints it on stderr. Prints its port first.

  scripts/demo-server.py EXAMPLES_FOLDER
"""
import http.server
import pathlib
import sys

folder = pathlib.Path(sys.argv[1])


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        if self.path.startswith("/vast/"):
            path = folder / pathlib.Path(self.path[len("/vast/"):]).name
            if path.is_file():
                body = path.read_text().replace("PORT", str(self.server.server_address[1]))
                data = body.encode()
                self.send_response(200)
                self.send_header("Content-Type", "application/xml")
                self.send_header("Content-Length", str(len(data)))
                self.end_headers()
                self.wfile.write(data)
                return
            self.send_error(404)
            return
        print(f"  (server received {self.path})", file=sys.stderr, flush=True)
        self.send_response(204)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *args):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
