"""What arrives of a 1080p30 H.264 stream over links of different rates, queues and losses.

Rate and queue are the kernel's (tbf on the desk's end of the link); losses are the receiver's own
(--drop), since not every kernel can lose datagrams. Each link is its own run of host and receiver,
with and without --adapt; a run on a free link says what this machine can encode at all.
"""

import argparse
import json
import os
import pathlib
import shutil
import signal
import subprocess
import time

DESK = "10.77.0.1"
PORT = 47130
IDENTITY = '{"id":"0e9b1c34-6f0a-4a5c-9a53-2f2f7d1b8c11","name":"Bench"}'
FREE = (None, None, 0)
RATES = (5, 15, 50, 150, 400)  # Mbit/s
QUEUES = (64, 1024)  # kB
LOSSES = (1, 3, 5, 10)  # per cent


def links(quick):
    """(Mbit/s, queue in kB, loss in per cent); None: without bounds."""
    if quick:
        return [FREE, (15, 64, 0), (15, 1024, 0), (50, 64, 0), (None, None, 5)]
    limited = [(rate, queue, 0) for queue in QUEUES for rate in RATES]
    return [FREE] + limited + [(None, None, loss) for loss in LOSSES]


def shape(link):
    rate, queue, _ = link
    # A queue that is only changed keeps what stands in it, which is the last run's.
    subprocess.run(["tc", "qdisc", "del", "dev", "desk0", "root"], stderr=subprocess.DEVNULL)
    if rate is not None:
        subprocess.run(["tc", "qdisc", "add", "dev", "desk0", "root", "tbf", "rate",
                        f"{rate}mbit", "burst", f"{max(5, rate // 10):.0f}kb",
                        "limit", f"{queue}kb"], check=True)


def name_of(link):
    rate, queue, loss = link
    text = "free" if rate is None else f"{rate} Mbit/s, {queue} kB"
    return f"{text}, {loss} % lost" if loss else text


def wait_for(log, host):
    for _ in range(200):
        if log.exists() and " Listening on :" in log.read_text(errors="replace"):
            return
        if host.poll() is not None:
            break
        time.sleep(0.05)
    raise SystemExit("links.py: the host didn't start")


def run(bins, out, link, adapt, seconds, extra):
    shape(link)
    shutil.rmtree(out, ignore_errors=True)
    settings = out / "home/settings/Veldrift"
    settings.mkdir(parents=True)
    (settings / "install.json").write_text(IDENTITY)
    log = out / "home/local/Veldrift/plugin-x.log"
    with open(out / "host.log", "w") as host_log, open(out / "phone.log", "w") as phone_log:
        host = subprocess.Popen([bins / "veldrift-host", "--home", out / "home", "--no-discovery",
                                 "--host", "unknown", "--size", "1920x1080", "--fps", "30",
                                 "--json"], stdout=host_log, stderr=subprocess.STDOUT,
                                stdin=subprocess.DEVNULL)
        try:
            wait_for(log, host)
            phone = subprocess.run(
                ["nsenter", f"--net={os.environ['VD_PHONE_NET']}", bins / "veldrift-phone",
                 "--host", f"{DESK}:{PORT}", "--token-file", out / "token", "--code-from-log", log,
                 "--codec", "h264", "--drop", str(link[2]), "--seconds", str(seconds),
                 "--want-sound", "--json"] +
                (["--adapt"] if adapt else [] if "--gop" in extra else ["--gop", "long"]) + extra,
                stdout=subprocess.PIPE, stderr=phone_log, text=True)
        finally:
            host.send_signal(signal.SIGINT)
            host.wait()
    (out / "phone.json").write_text(phone.stdout)
    return json.loads(phone.stdout)


def number(value, digits=0):
    return "-" if value is None else f"{value:.{digits}f}"


def row(link, adapt, found, free_rate):
    decoder, seconds = found.get("decoder"), found.get("seconds", 0)
    if decoder is None:
        return [name_of(link), "yes" if adapt else "no", found["verdict"]]
    delay = found["delay"]["push_to_whole"]
    sound = found["audio"]
    return [name_of(link), "yes" if adapt else "no",
            number(100 - found["lost_percent"] if decoder["decoded"] else 0, 1),
            number(100 * decoder["decoded"] / seconds / free_rate),
            number(delay["p50_ms"]), number(delay["p99_ms"]),
            number(found["bits_per_second"] / 1e6, 1),
            number(found.get("first_picture_ms", 0) / 1000 or None, 2),
            number(sound["seconds_without"], 2), number(sound["seconds_concealed"], 2),
            f"{found['width']}x{found['height']}"]


HEAD = ["link", "adapt", "decoded %", "of free %", "p50 ms", "p99 ms", "Mbit/s", "first s",
        "no sound s", "bridged s", "size"]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bins", type=pathlib.Path)
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true", help="five links instead of fifteen")
    parser.add_argument("--seconds", type=float, default=30)
    parser.add_argument("--link", help="RATE,QUEUE,LOSS: this one alone; RATE 0: free")
    parser.add_argument("--only", choices=("adapt", "plain"))
    options, extra = parser.parse_known_args()

    chosen = links(options.quick)
    if options.link:
        rate, queue, loss = (float(part) for part in options.link.split(","))
        chosen = [(rate or None, queue or None, loss)]
    rows, free_rate = [HEAD], 30
    for link in chosen:
        for adapt in (False, True):
            if options.only == ("plain" if adapt else "adapt"):
                continue
            name = name_of(link).replace("/", "").replace(" ", "-") + ("-adapt" if adapt else "")
            found = run(options.bins, options.out / name, link, adapt, options.seconds, extra)
            if link == FREE and not adapt:
                free_rate = found["decoder"]["decoded"] / found["seconds"]
            rows.append(row(link, adapt, found, free_rate))
            print("  ".join(rows[-1]), flush=True)
    widths = [max(len(each[i]) for each in rows if i < len(each)) for i in range(len(HEAD))]
    print(f"\na free link carries {free_rate:.1f} pictures a second on this machine")
    for each in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(each, widths)).rstrip())


if __name__ == "__main__":
    main()
