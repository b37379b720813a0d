#!/usr/bin/env python3
"""Reads an MTF 1.00a medium strictly, by the published format alone, and prints one line per directory and file.

It knows none of our own streams: it passes them over, as other readers do. Any deviation ends it with exit code 1.
"""
import hashlib
import struct
import sys

BLOCK = 1024


class Broken(Exception):
    pass


def need(condition, at, what):
    if not condition:
        raise Broken(f"{what} at {at}")


def xor16(data):
    total = 0
    for (word,) in struct.iter_unpack("<H", data):
        total ^= word
    return total


class Medium:
    def __init__(self, data):
        self.data = data
        self.set_start = None
        self.control_block = 0
        self.filemarks = []
        self.directory = None
        self.directory_id = 0
        self.file_id = 0
        self.lines = []

    def header(self, at):
        need(at % BLOCK == 0 and at + BLOCK <= len(self.data), at, "block boundary")
        head = self.data[at : at + 52]
        need(xor16(head) == 0, at, "header checksum")
        first_event, os_id, os_version = struct.unpack_from("<HBB", head, 8)
        need((os_id, os_version) == (28, 0), at, "operating system")
        address, = struct.unpack_from("<Q", head, 20)
        control, = struct.unpack_from("<I", head, 36)
        return head[:4].decode("ascii"), first_event, address, control, head[48]

    def text(self, at, field, kind):
        size, offset = struct.unpack_from("<HH", self.data, at + field)
        raw = self.data[at + offset : at + offset + size]
        need(len(raw) == size and offset + size <= BLOCK, at, "text outside of its block")
        return raw.decode("utf-16-le").encode() if kind == 2 else raw

    def streams(self, at, first):
        """Yields type, attributes and data of each stream; the last one is SPAD and ends on a block."""
        while True:
            need(at % 4 == 0 or first % 4 == 0, at, "stream alignment")
            head = self.data[at : at + 22]
            need(len(head) == 22 and xor16(head) == 0, at, "stream checksum")
            kind = head[:4].decode("ascii")
            system, media, length = struct.unpack_from("<HHQ", head, 4)
            data = self.data[at + 22 : at + 22 + length]
            need(len(data) == length, at, "stream outside of the medium")
            end = at + 22 + length
            if kind == "SPAD":
                need(not any(data) and end % BLOCK == 0, at, "padding")
                self.next = end
                return
            yield kind, system, media, data
            aligned = (end + 3) // 4 * 4
            need(not any(self.data[end:aligned]), end, "alignment filling")
            at = aligned

    def filemark(self, at, first, address, control):
        need(first == BLOCK and address == at // BLOCK and control == len(self.filemarks) + 1, at, "filemark")
        entries, used = struct.unpack_from("<II", self.data, at + 52)
        need(entries == 241 and used == len(self.filemarks), at, "filemark entries")
        listed = list(struct.unpack_from(f"<{used}I", self.data, at + 60))
        need(listed == self.filemarks[::-1], at, "filemark list")
        self.filemarks.append(at // BLOCK)
        self.next = at + BLOCK

    def order(self, at, address, control):
        need(address == (at - self.set_start) // BLOCK, at, "logical address")
        need(control == self.control_block + 1, at, "control block number")
        self.control_block = control

    def content(self, at, kind, size, sparse, data, extents):
        if sparse:
            whole = bytearray(size)
            for offset, part in extents:
                need(offset + len(part) <= size, at, "extent outside of the file")
                whole[offset : offset + len(part)] = part
            data = bytes(whole)
        need(len(data) == size, at, "size of the data")
        return hashlib.sha256(data).hexdigest()

    def entry(self, at, kind, first, string_type):
        attributes, = struct.unpack_from("<I", self.data, at + 52)
        size, = struct.unpack_from("<Q", self.data, at + 12)
        name = self.text(at, 80 if kind == "DIRB" else 84, string_type)
        data, extents, sparse, has_data = b"", [], False, False
        for stream, system, media, bytes_ in self.streams(at + first, first):
            if stream in ("PNAM", "FNAM"):
                need(attributes & 1 << 17 and not name, at, "name in a stream")
                name = bytes_.decode("utf-16-le").encode() if string_type == 2 else bytes_
            elif stream == "STAN":
                data, sparse, has_data = bytes_, bool(system & 8), True
                need(bool(media & 32) != sparse, at, "checksum attribute")
            elif stream == "SPAR":
                extents.append((struct.unpack_from("<Q", bytes_)[0], bytes_[8:]))
            elif stream == "CSUM":
                padded = data + bytes(-len(data) % 4)
                total = 0
                for (word,) in struct.iter_unpack("<I", padded):
                    total ^= word
                need(struct.pack("<I", total) == bytes_, at, "checksum of the data")
        if kind == "DIRB":
            self.directory_id += 1
            need(struct.unpack_from("<I", self.data, at + 76)[0] == self.directory_id, at, "directory number")
            need(name.endswith(b"\0"), at, "directory name")
            self.directory = name[:-1].replace(b"\0", b"/")
            self.lines.append(b"D " + self.directory)
            return
        self.file_id += 1
        need(self.directory is not None, at, "file without a directory")
        ids = struct.unpack_from("<II", self.data, at + 76)
        need(ids == (self.directory_id, self.file_id), at, "file number")
        need(name and b"/" not in name and b"\0" not in name, at, "file name")
        path = self.directory + b"/" + name if self.directory else name
        digest = self.content(at, kind, size, sparse, data, extents) if has_data else "-"
        self.lines.append(b"F " + path + f" {size} {digest}".encode())

    def read(self):
        at, expected = 0, ["TAPE"]
        while at < len(self.data):
            kind, first, address, control, string_type = self.header(at)
            need(kind in expected, at, f"{kind} in place of {expected}")
            if kind == "SFMB":
                self.filemark(at, first, address, control)
                expected = {1: ["SSET"], 2: ["ESET"], 3: []}[len(self.filemarks)]
                at = self.next
                continue
            if kind == "TAPE":
                need(struct.unpack_from("<HH", self.data, at + 64)[0] == 2, at, "filemark size")
                need(struct.unpack_from("<H", self.data, at + 84)[0] == BLOCK, at, "block size")
                need(self.text(at, 80, string_type), at, "software name")
                expected = ["SFMB"]
            elif kind == "SSET":
                self.set_start = at
                need(struct.unpack_from("<Q", self.data, at + 80)[0] == at // BLOCK, at, "address of the set")
                expected = ["VOLB", "SFMB"]
            elif kind == "ESET":
                need(control == self.control_block + 1, at, "control block number")
                expected = ["SFMB"]
            else:
                self.order(at, address, control)
                if kind == "VOLB":
                    self.directory = None
                    self.lines.append(b"V " + self.text(at, 56, string_type))
                    expected = ["DIRB", "VOLB", "SFMB"]
                else:
                    expected = ["DIRB", "FILE", "CFIL", "VOLB", "SFMB"]
            if kind in ("DIRB", "FILE"):
                self.entry(at, kind, first, string_type)
            else:
                for _ in self.streams(at + first, first):
                    pass
            at = self.next
        need(len(self.filemarks) == 3 and at == len(self.data), at, "end of the medium")


def main():
    with open(sys.argv[1], "rb") as file:
        medium = Medium(file.read())
    try:
        medium.read()
    except Broken as broken:
        print(broken, file=sys.stderr)
        return 1
    sys.stdout.buffer.write(b"".join(line + b"\n" for line in medium.lines))
    return 0


if __name__ == "__main__":
    sys.exit(main())
