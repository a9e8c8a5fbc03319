"""A small SNMP manager (version 2c, GETBULK) that costs little enough to look all the time."""

import socket

PDU_GETBULK = 0xA5
OCTETS, NULL, OID, SEQUENCE = 0x04, 0x05, 0x06, 0x30
INTEGER = 0x02


def length(size):
    if size < 0x80:
        return bytes([size])
    digits = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([0x80 | len(digits)]) + digits


def tagged(tag, content):
    return bytes([tag]) + length(len(content)) + content


def integer(value):
    return tagged(INTEGER, value.to_bytes(value.bit_length() // 8 + 1, "big"))


def identifier(name):
    parts = [int(part) for part in name.split(".")]
    content = bytes([40 * parts[0] + parts[1]])
    for part in parts[2:]:
        groups = [part & 0x7F]
        while part > 0x7F:
            part >>= 7
            groups.append(0x80 | part & 0x7F)
        content += bytes(reversed(groups))
    return tagged(OID, content)


def nameOf(content):
    parts = list(divmod(content[0], 40))
    part = 0
    for octet in content[1:]:
        part = part << 7 | octet & 0x7F
        if not octet & 0x80:
            parts.append(part)
            part = 0
    return ".".join(map(str, parts))


def split(octets):
    """The first element: its tag and content, and what follows it."""
    tag, size, begin = octets[0], octets[1], 2
    if size & 0x80:
        begin += size & 0x7F
        size = int.from_bytes(octets[2:begin], "big")
    return tag, octets[begin:begin + size], octets[begin + size:]


def elements(octets):
    found = []
    while octets:
        tag, content, octets = split(octets)
        found.append((tag, content))
    return found


class Client:
    """Asks one agent, one question at a time."""

    def __init__(self, port, patience, host="127.0.0.1", family=socket.AF_INET,
                 kind=socket.SOCK_DGRAM):
        self.socket = socket.socket(family, kind)
        self.socket.settimeout(patience)
        self.socket.connect((host, port))
        self.number = 0

    def bulk(self, name, repetitions):
        """One GETBULK: [(object identifier, octets)] of what has octets below the name. The agent
        answers it in one piece, between two events. Raises OSError when there is no answer."""
        self.ask(name, repetitions)
        while True:
            number, bindings = self.answer(self.socket.recv(65536))
            if number == self.number:
                return [(found, value) for found, tag, value in bindings
                        if tag == OCTETS and found.startswith(name + ".")]

    def ask(self, name, repetitions):
        """Sends such a GETBULK, and waits for nothing."""
        self.number += 1
        binding = tagged(SEQUENCE, tagged(SEQUENCE, identifier(name) + tagged(NULL, b"")))
        pdu = tagged(PDU_GETBULK, integer(self.number) + integer(0) + integer(repetitions) + binding)
        self.socket.send(tagged(SEQUENCE, integer(1) + tagged(OCTETS, b"public") + pdu))

    @staticmethod
    def answer(octets):
        message = elements(split(octets)[1])
        pdu = elements(message[2][1])
        bindings = []
        for _, binding in elements(pdu[3][1]):
            (_, name), (tag, value) = elements(binding)
            bindings.append((nameOf(name), tag, value))
        return int.from_bytes(pdu[0][1], "big"), bindings

    def close(self):
        self.socket.close()
