"""A manager that takes notifications of versions 1 and 2c, and acknowledges informs when it is told
to."""

import socket
import time

from pyasn1.codec.ber import decoder, encoder
from pysnmp.proto import api

import support

TRAP_OID = (1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0)
COLD_START = "1.3.6.1.6.3.1.1.5.1"
CAUSES_CHANGED = "1.3.6.1.4.1.32473.3.25.0.1"
UNIT = "1.3.6.1.4.1.32473.3.25.1.1.0"
CAUSES = "1.3.6.1.4.1.32473.3.25.1.2.0"
V2C = api.protoModules[api.protoVersion2c]


class Message:
    """A notification of version 2c as it came in."""

    def __init__(self, octets, source):
        self.octets = octets
        self.source = source
        self.message, _ = decoder.decode(octets, asn1Spec=V2C.Message())
        self.pdu = V2C.apiMessage.getPDU(self.message)
        self.isInform = self.pdu.isSameTypeWith(V2C.InformRequestPDU())
        self.variables = [(str(name), value) for name, value in V2C.apiPDU.getVarBinds(self.pdu)]
        names = dict(self.variables)
        self.kind = str(names[".".join(map(str, TRAP_OID))])
        self.unit = int(names[UNIT]) if UNIT in names else None
        self.count = int(names[CAUSES]) if CAUSES in names else None
        self.request = int(V2C.apiPDU.getRequestID(self.pdu))

    def rows(self):
        """The causes that it tells of, {(unit, reload, cause): (description, time)}."""
        found = {}
        for name, value in self.variables:
            if name.startswith(support.ENTRY + "."):
                column, *key = (int(part) for part in name[len(support.ENTRY) + 1:].split("."))
                found.setdefault(tuple(key), {})[column] = bytes(value)
        return {key: (row[support.DESCRIPTION], row[support.TIME]) for key, row in found.items()}


class TrapReceiver:
    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.socket.getsockname()[1]
        self.acknowledges = True

    def close(self):
        self.socket.close()

    def next(self, patience=support.PATIENCE):
        """The next message, or None."""
        self.socket.settimeout(patience)
        try:
            octets, source = self.socket.recvfrom(65535)
        except TimeoutError:
            return None
        message = Message(octets, source)
        if message.isInform and self.acknowledges:
            self.acknowledge(message)
        return message

    def during(self, seconds):
        """All messages of so many seconds."""
        end = time.monotonic() + seconds
        found = []
        while (left := end - time.monotonic()) > 0:
            message = self.next(left)
            if message:
                found.append(message)
        return found

    def acknowledge(self, message):
        response = V2C.apiPDU.getResponse(message.pdu)
        V2C.apiPDU.setVarBinds(response, V2C.apiPDU.getVarBinds(message.pdu))
        answer = V2C.apiMessage.getResponse(message.message)
        V2C.apiMessage.setPDU(answer, response)
        self.socket.sendto(encoder.encode(answer), message.source)
