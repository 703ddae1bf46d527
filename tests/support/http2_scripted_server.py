#!/usr/bin/python3
"""A loopback HTTP/2 server over TLS that a transport test scripts by path, for what a real server will not
do on request: act on a request and then close the connection without answering.

    http2_scripted_server.py PORT CERT KEY LOG

Each request is appended to LOG as "N METHOD PATH" (N: the connection's number, from 0). A request whose
path starts with /close is acted on (logged) and its connection closed at once, with no answer and no
GOAWAY; one whose path starts with /goaway is acted on and answered with a GOAWAY that says no stream was
processed (a server mistaken, or lying); any other is answered 200 with {"path": PATH}. Runs until it is terminated. Loopback only.
"""
import json
import socket
import ssl
import sys
import threading

import h2.config
import h2.connection
import h2.events


def serve(connection_number, raw, context, log_path, log_lock):
    try:
        tls = context.wrap_socket(raw, server_side=True)
    except (ssl.SSLError, OSError):
        raw.close()
        return
    conn = h2.connection.H2Connection(config=h2.config.H2Configuration(client_side=False))
    conn.initiate_connection()
    tls.sendall(conn.data_to_send())
    heads = {}
    try:
        while True:
            data = tls.recv(65536)
            if not data:
                return
            for event in conn.receive_data(data):
                if isinstance(event, h2.events.RequestReceived):
                    heads[event.stream_id] = dict((k.decode() if isinstance(k, bytes) else k,
                                                   v.decode() if isinstance(v, bytes) else v)
                                                  for k, v in event.headers)
                elif isinstance(event, h2.events.DataReceived):
                    conn.acknowledge_received_data(event.flow_controlled_length, event.stream_id)
                elif isinstance(event, h2.events.StreamEnded):
                    head = heads.pop(event.stream_id, {})
                    method, path = head.get(":method", "?"), head.get(":path", "?")
                    with log_lock, open(log_path, "a") as log:
                        log.write("%d %s %s\n" % (connection_number, method, path))
                    if path.startswith("/goaway"):
                        # Acted on, then told the client that no stream was processed: a client that
                        # believes it sends the request again.
                        conn.close_connection(last_stream_id=0)
                        tls.sendall(conn.data_to_send())
                        tls.shutdown(socket.SHUT_RDWR)
                        return
                    if path.startswith("/close"):
                        # Acted on, never answered: the connection ends under the request.
                        tls.shutdown(socket.SHUT_RDWR)
                        return
                    body = json.dumps({"path": path}).encode()
                    conn.send_headers(event.stream_id, [(":status", "200"), ("content-type", "application/json"),
                                                        ("content-length", str(len(body)))])
                    conn.send_data(event.stream_id, body, end_stream=True)
            pending = conn.data_to_send()
            if pending:
                tls.sendall(pending)
    except (ssl.SSLError, OSError):
        return
    finally:
        tls.close()


def main():
    port, cert, key, log_path = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    context.set_alpn_protocols(["h2"])
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", port))
    listener.listen(16)
    log_lock = threading.Lock()
    number = 0
    while True:
        raw, _ = listener.accept()
        threading.Thread(target=serve, args=(number, raw, context, log_path, log_lock), daemon=True).start()
        number += 1


if __name__ == "__main__":
    main()
