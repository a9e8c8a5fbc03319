"""What the agent of one supervisor must show, told in plain values from what was published.

The rows depend on more than what stands now: an agent remembers which reload of each cell it
watches and which history of the peer it was given last, and rows that nobody asked it to take away
stay. Exactly that is kept here, event by event.
"""

HISTORY = "System::ResetCauseHistory"
STATUS = "Redundancy::RedundancyStatus"
HOT_STANDBY = 3


def historyPath(cell):
    return f"cell/{cell}/sys/reset/history"


def statusPath(cell):
    return f"cell/{cell}/redundancy/status"


class Reload:
    """One reload; compared as an object, whatever its causes are."""

    def __init__(self, causes):
        self.causes = causes


class Mirror:
    """A history that follows a path: what is unpublished, does not fit or is of another type
    leaves it as it was last seen."""

    def __init__(self, tellHistory, tellCauses):
        self.reloads = {}
        self.tellHistory = tellHistory
        self.tellCauses = tellCauses

    def latest(self):
        return self.reloads.get(0)

    def follow(self, reloads):
        for index in sorted(set(self.reloads) - set(reloads)):
            del self.reloads[index]
            self.tellHistory()
        for index, causes in sorted(reloads.items()):
            if index not in self.reloads:
                self.reloads[index] = Reload(causes)
                self.tellHistory()
            elif self.reloads[index].causes != causes:
                self.reloads[index].causes = causes
                self.tellCauses(self.reloads[index])


class Mount:
    """The way to the peer's history: waits until a document of any type stands at the path."""

    def __init__(self, supervisor):
        self.supervisor = supervisor
        self.waits = True
        self.history = Mirror(lambda: supervisor.onPeerHistory(self.history),
                              supervisor.onCauses)

    def see(self, document):
        isHistory = document.type == HISTORY
        if isHistory and not document.fits:
            return
        if isHistory:
            self.history.follow(document.content)
        if self.waits:
            self.waits = False
            self.supervisor.mountCompletes(self.history if isHistory else None)


class Document:
    """`content` is {index: [(description, time)]} of a history, (protocol, capable) of a status."""

    def __init__(self, type, content=None, fits=True):
        self.type = type
        self.content = content
        self.fits = fits


class Supervisor:
    def __init__(self, cell, cellType, published):
        """An agent that starts now; `published` holds the document at each path."""
        self.cell = cell
        self.peer = 3 - cell
        self.units = [0, cell] if cellType == "supervisor" else [0]
        self.published = {}  # the last good document at each path, or a bad one without it
        self.table = {}
        self.protocol = 0
        self.capable = False
        self.own = Mirror(self.onOwnHistory, self.onCauses)
        self.peerHistory = None
        self.ownReload = None
        self.peerReload = None
        self.mount = None
        for path in sorted(published):
            self.take(path, published[path])
        for path in sorted(published):
            self.tell(path, published[path])

    def rows(self, rowOf):
        """{(unit, 0, cause): row}; a row whose cause went shows an empty one."""
        return {(unit, 0, number): rowOf(*(reload.causes + [("", 0)] * number)[number - 1])
                for (unit, number), reload in self.table.items()}

    def see(self, path, document):
        """A document was published."""
        self.take(path, document)
        self.tell(path, document)

    def unsee(self, path):
        """What stood at the path is no longer published; whoever follows it keeps what it saw."""
        self.published.pop(path, None)

    def take(self, path, document):
        if document.fits or path not in self.published or not self.published[path].fits:
            self.published[path] = document

    def tell(self, path, document):
        if path == historyPath(self.cell):
            if document.type == HISTORY and document.fits:
                self.own.follow(document.content)
        elif path == statusPath(self.cell):
            if document.type == STATUS and document.fits:
                self.statusIs(*document.content)
        elif path == historyPath(self.peer) and self.mount:
            self.mount.see(document)

    def statusIs(self, protocol, capable):
        protocolChanges = protocol != self.protocol
        capableChanges = capable != self.capable
        self.protocol, self.capable = protocol, capable
        if protocolChanges:
            self.onProtocol()
        if capableChanges:
            self.writePeer()

    def onProtocol(self):
        if self.protocol != HOT_STANDBY:
            # A mount that is under way stays, and may still hand over its history.
            self.peerReload = None
            self.delete(self.peer)
            self.peerHistoryIs(None)
            return
        self.mount = Mount(self)
        if historyPath(self.peer) in self.published:
            self.mount.see(self.published[historyPath(self.peer)])

    def onOwnHistory(self):
        latest = self.own.latest()
        if latest is None:
            self.ownReload = None  # the rows stay
        elif self.ownReload is None:
            self.ownReload = latest
            self.rebuildOwn()

    def onPeerHistory(self, history):
        if history is not self.peerHistory or history.latest() is None:
            return
        # A reload of the peer that is watched already is not given up for another one.
        if self.peerReload is None:
            self.peerReload = history.latest()
            self.rebuildPeer()

    def onCauses(self, reload):
        if reload is self.ownReload:
            self.rebuildOwn()
        if reload is self.peerReload:
            self.rebuildPeer()

    def mountCompletes(self, history):
        self.peerReload = None
        self.peerHistoryIs(history)

    def peerHistoryIs(self, history):
        if history is self.peerHistory:
            return
        self.peerHistory = history
        if history is not None:
            self.onPeerHistory(history)
        self.writePeer()

    def rebuildOwn(self):
        self.delete(0)
        self.delete(self.cell)
        self.write(self.units, self.own.latest())

    def rebuildPeer(self):
        self.delete(self.peer)
        self.writePeer()

    def writePeer(self):
        """Replaces the peer's rows by those of its latest reload, if it may and there is one."""
        if not self.capable or self.peerHistory is None or self.peerHistory.latest() is None:
            return
        self.delete(self.peer)
        self.write([self.peer], self.peerHistory.latest())

    def delete(self, unit):
        self.table = {key: reload for key, reload in self.table.items() if key[0] != unit}

    def write(self, units, reload):
        if reload is None:
            return
        for unit in units:
            for number in range(1, len(reload.causes) + 1):
                self.table[(unit, number)] = reload
