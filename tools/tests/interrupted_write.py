"""pximg stopped by SIGINT or SIGTERM while it writes leaves no partial file. The partial file is made a FIFO
beforehand, so that pximg waits in it (as in a slow write) until the signal comes.
Arguments: the pximg program, an input image, a work folder."""
import os
import shutil
import signal
import subprocess
import sys
import time


def main(pximg, source, work):
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    for sig in (signal.SIGINT, signal.SIGTERM):
        name = signal.Signals(sig).name
        output = os.path.join(work, f"out-{name}.pxi")
        partial = os.path.join(work, f"out-{name}.pximg-partial.pxi")
        os.mkfifo(partial)
        process = subprocess.Popen([pximg, "convert", source, output])
        time.sleep(1)
        process.send_signal(sig)
        try:
            status = process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            os.close(os.open(partial, os.O_RDONLY | os.O_NONBLOCK))  # lets it go on, so that the test ends
            process.kill()
            process.wait()
            sys.exit(f"pximg still ran after {name}")
        if status != -sig:
            sys.exit(f"pximg ended with status {status} after {name}, not by the signal")
        left = os.listdir(work)
        if left:
            sys.exit(f"{name} left files behind: {left}")


if __name__ == "__main__":
    main(*sys.argv[1:4])
