#!/usr/bin/env python3
"""A receiver of Veldrift's stream in Python's standard library alone, to be read beside
docs/protocol.md. It pairs, receives, repairs nothing but says what was lost, and writes pictures as
Annex B and sound as WAV, until Ctrl-C.

    receiver.py 192.0.2.10 --token-file token --video out.h264 --sound out.wav
"""
import argparse
import os
import re
import select
import socket
import struct
import sys
import time
import uuid

CONTROL_PORT, VIDEO_PORT, SOUND_PORT = 47100, 47101, 47102
PATIENCE = 5.0  # seconds without any message, where a heartbeat comes each second
KEY_FRAME_EVERY = 0.5  # seconds between two requests for a key frame


class Failure(Exception):
    """One sentence for the user."""


class Control:
    """The control connection. A message is an opcode and a payload; the opcode tells its length."""

    LENGTHS = {0x06: 10, 0x09: 0, 0x0F: 1, 0x16: 8, 0x1A: 1, 0x31: 0, 0x33: None, 0x34: 0, 0x35: 1,
               0x36: 2, 0x37: None, 0x38: None, 0x39: 1}  # None: a length byte tells

    def __init__(self, host, port, bind):
        self.bytes = bytearray()  # that are no whole message yet
        try:
            self.socket = socket.create_connection((host, port), PATIENCE, (bind, 0))
        except OSError as error:
            raise Failure(f"can't connect to {host}:{port}: {error.strerror or error}") from None

    def send(self, opcode, payload=b""):
        self.socket.sendall(bytes([opcode]) + payload)

    def read(self):
        try:
            more = self.socket.recv(65536)
        except socket.timeout:
            raise Failure("the plug-in doesn't answer") from None
        if not more:
            raise Failure("the plug-in has ended the connection")
        self.bytes += more

    def take(self):
        """The next message: opcode, and payload without its length byte. None: not there yet."""
        if not self.bytes:
            return None
        opcode, start = self.bytes[0], 1
        if opcode not in self.LENGTHS:
            raise Failure(f"the plug-in sent an unknown message, 0x{opcode:02x}")
        length = self.LENGTHS[opcode]
        if length is None:
            length, start = self.bytes[1] if len(self.bytes) > 1 else 0, 2
        if len(self.bytes) < start + length:
            return None
        payload = bytes(self.bytes[start:start + length])
        del self.bytes[:start + length]
        return opcode, payload

    def reply(self):
        """While pairing: waits for a message that isn't a heartbeat."""
        while not (message := self.take()) or message[0] == 0x09:
            if not message:
                self.read()
        return message

    def pair(self, phone, token, code):
        """Says who we are. The result is the token that spares the code the next time."""
        texts = [text.encode() for text in (phone, "receiver.py", token)]
        self.send(0x30, b"".join(bytes([len(text)]) + text for text in texts))
        opcode, payload = self.reply()
        if opcode == 0x31:
            self.send(0x32, (code or ask_for_code()).encode())
            opcode, payload = self.reply()
        if opcode != 0x33:
            raise Failure("the plug-in refused the code")
        return payload.decode(errors="replace")


def ask_for_code():
    code = ""
    while not re.fullmatch("[0-9]{6}", code):
        try:
            code = input("The six digits that the plug-in shows: ").strip()
        except EOFError:
            raise Failure("the plug-in wants its code, and there is nobody to ask") from None
    return code


class Stream:
    """One media port: puts datagrams together to frames and hands these on in order."""

    HEADER = struct.Struct("<4sBBHIIHHH")
    FRAMES_AHEAD = 4  # a frame is given up when one that is so much younger has begun

    def __init__(self, kind, bind, port, sink):
        self.kind, self.sink = kind, sink
        self.next = None  # the number of the frame to hand on next
        self.frames = {}  # by number: key frame, K, and payloads by index
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self.socket.setblocking(False)
        try:
            self.socket.bind((bind, port))
        except OSError as error:
            raise Failure(f"can't receive on port {port}: {error.strerror}") from None

    def read(self, sender):
        """Takes what has come from the plug-in's machine."""
        for _ in range(500):
            try:
                datagram, origin = self.socket.recvfrom(2048)
            except BlockingIOError:
                return
            if origin[0] == sender and len(datagram) >= self.HEADER.size:
                self.add(datagram)

    def add(self, datagram):
        magic, kind, flags, number, _, _, index, count, length = self.HEADER.unpack_from(datagram)
        data_count = count - (flags >> 2)  # behind them comes parity, with which to repair
        payload = datagram[22:22 + length]  # the send time may follow
        if magic != b"VDV\2" or kind != self.kind or index >= data_count or len(payload) < length:
            return
        if self.next is None:
            self.next = number
        if (number - self.next) & 0xFFFF < 0x8000:  # else its frame was handed on or given up
            _, known_count, pieces = self.frames.setdefault(number, (flags & 1, data_count, {}))
            if index < known_count:
                pieces[index] = payload
            self.hand_on()

    def hand_on(self):
        while self.frames:
            key, count, pieces = self.frames.get(self.next, (0, 1, {}))
            ahead = max((number - self.next) & 0xFFFF for number in self.frames)
            if len(pieces) < count and ahead < self.FRAMES_AHEAD:
                return
            self.frames.pop(self.next, None)
            self.next = (self.next + 1) & 0xFFFF
            if len(pieces) == count:
                self.sink.frame(b"".join(pieces[i] for i in range(count)), key)
            else:
                self.sink.lose()


class Pictures:
    """Writes access units as they come; after a loss none until the next key frame."""

    def __init__(self, file, codec):
        self.file, self.codec = file, codec
        self.waiting = True  # for a key frame
        self.written = self.lost = self.skipped = 0

    def frame(self, data, key):
        if key:
            self.waiting = codec_of(data) != self.codec  # that of an earlier setting
        if self.waiting:
            self.skipped += 1
        else:
            self.written += 1
            self.file.write(data)

    def lose(self):
        self.lost += 1
        self.waiting = True


def codec_of(key_frame):
    """No field says it; the parameter sets do with which each key frame begins."""
    found = re.search(rb"\x00\x00\x01(?:(\x40)|[\x27\x47\x67])", key_frame)
    return found and ("h265" if found[1] else "h264")


class Sound:
    """Writes blocks as WAV of 32-bit floats, and as much silence for each lost one."""

    def __init__(self, file):
        self.file = file
        self.format = None  # sample rate and channels
        self.blocks = self.lost = self.bytes = self.block_bytes = 0

    def frame(self, block, _key):
        rate, channels, _, _ = struct.unpack_from("<IBHB", block.ljust(8, b"\0"))
        if self.format not in (None, (rate, channels)):
            raise Failure(f"the sound has changed to {rate} Hz, {channels} channels")
        self.format = rate, channels
        self.blocks += 1
        self.block_bytes = len(block) - 8
        self.add(block[8:])

    def lose(self):
        self.lost += 1
        if self.block_bytes:
            self.add(bytes(self.block_bytes))

    def add(self, samples):
        if self.bytes == 0:
            self.write_header()  # without the length, which is known at the end
        self.bytes += len(samples)
        self.file.write(samples)

    def write_header(self):
        rate, channels = self.format
        size = min(self.bytes, 0xFFFFFFFF - 36)
        self.file.seek(0)
        self.file.write(struct.pack(
            "<4sI4s 4sIHHIIHH 4sI", b"RIFF", 36 + size, b"WAVE", b"fmt ", 16, 3, channels, rate,
            rate * channels * 4, channels * 4, 32, b"data", size))


def receive(control, video, sound, seconds):
    """Until the time is up; a plug-in that goes is a Failure."""
    sender = control.socket.getpeername()[0]
    heard = time.monotonic()
    asked, end = 0.0, heard + seconds
    while (now := time.monotonic()) < end:
        ready = select.select([control.socket, video.socket, sound.socket], [], [], 0.1)[0]
        video.read(sender)
        sound.read(sender)
        if control.socket in ready:
            control.read()
            heard = now
        elif now - heard > PATIENCE:
            raise Failure("the plug-in has gone silent")
        while message := control.take():
            if message[0] == 0x37:
                print("encoder:", message[1].decode(errors="replace"))
        if video.sink.waiting and now - asked > KEY_FRAME_EVERY:
            control.send(0x01)
            asked = now


def read_identity(path):
    """Our id and the token. Who keeps none needs no id of his own."""
    if not path or not os.path.exists(path):
        return str(uuid.uuid4()) if path else "receiver.py", ""
    with open(path, encoding="utf-8", errors="replace") as file:
        words = file.read().split()
    if len(words) != 2:
        raise Failure(f"{path} isn't a token file of this receiver's")
    return words


def keep_identity(path, phone, token):
    """In one step. Without a token it only tries whether it can."""
    new = path + ".new"
    with open(new, "w", encoding="utf-8", opener=lambda *how: os.open(*how, 0o600)) as file:
        file.write(f"{phone} {token}\n")
    os.replace(new, path) if token else os.remove(new)


def create(path):
    return open(path, "xb") if path else open(os.devnull, "wb")


def run(args):
    phone, token = read_identity(args.token_file)
    if args.token_file:
        keep_identity(args.token_file, phone, "")
    pictures = Pictures(create(args.video), args.video[-4:] if args.video else "h264")
    sound = Sound(create(args.sound))
    try:
        # The ports first: a connection of ours ends another phone's.
        video = Stream(1, args.bind, VIDEO_PORT, pictures)
        audio = Stream(2, args.bind, SOUND_PORT, sound)
        control = Control(args.host, args.port, args.bind)
        token = control.pair(phone, token, args.code)
        if args.token_file:
            keep_identity(args.token_file, phone, token)
        # All settings, since an earlier phone's still hold: no limit to the size, the codec, a long
        # GOP, quality instead of a bit rate, and whichever engine there is.
        control.send(0x18, struct.pack("<HBBBB", 0, pictures.codec == "h264", 3, 1, 0))
        try:
            receive(control, video, audio, args.seconds)
        finally:
            print(f"pictures: {pictures.written} written as {pictures.codec}, {pictures.lost} "
                  f"lost, {pictures.skipped} left out before a key frame")
            print(f"sound: {sound.blocks} blocks, {sound.lost} lost")
    except KeyboardInterrupt:
        print()
    finally:
        if sound.bytes:
            sound.write_header()
        for file in (pictures.file, sound.file):
            if file.tell() == 0 and file.name != os.devnull:
                os.remove(file.name)
            file.close()
    if not pictures.written:
        raise Failure("no picture arrived")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("address", metavar="ADDR[:PORT]", help=f"the plug-in ({CONTROL_PORT})")
    parser.add_argument("--code", metavar="NNNNNN", help="the digits (default: asks for them)")
    parser.add_argument("--token-file", metavar="F", help="keeps the pairing for the next run")
    parser.add_argument("--seconds", metavar="N", type=float, default=float("inf"))
    parser.add_argument("--video", metavar="F", help="a new file, .h264 or .h265: the codec wanted")
    parser.add_argument("--sound", metavar="F", help="a new file, .wav")
    parser.add_argument("--bind", metavar="ADDR", default="", help="the local address (any)")
    args = parser.parse_args()
    args.host, _, port = args.address.partition(":")
    args.port = int(port) if port.isdecimal() else 0 if port else CONTROL_PORT
    if not args.host or not 0 < args.port < 65536:
        parser.error(f"{args.address} isn't an address like 192.0.2.10 or 192.0.2.10:47110")
    if args.code and not re.fullmatch("[0-9]{6}", args.code):
        parser.error(f"--code {args.code} isn't six digits")
    if args.video and args.video[-5:] not in (".h264", ".h265"):
        parser.error(f"--video {args.video} doesn't end in .h264 or .h265")
    if not args.seconds > 0:
        parser.error("--seconds must be more than 0")
    for path in args.video, args.sound:
        if path and (os.path.exists(path) or not os.path.isdir(os.path.dirname(path) or ".")):
            parser.error(f"{path} is there already, or its folder isn't")
    return args


if __name__ == "__main__":
    try:
        run(parse_arguments())
    except Failure as failure:
        sys.exit(f"receiver.py: {failure}")
    except OSError as error:
        where = f"{error.filename}: " if error.filename else ""
        sys.exit(f"receiver.py: {where}{error.strerror or error}")
