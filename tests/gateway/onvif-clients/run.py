#!/usr/bin/env python3
"""ptzgate under ONVIF clients that others wrote: npm's onvif and node-onvif, and onvif-util of Debian.

Usage: npm install && npm start -- PTZGATE PTZSIM

npm's move cameras of several makes, read where they are, use presets and stop them; the simulators tell whether the
cameras did so. Debian's finds them by multicast, which is why npm begins this in a network of its own."""

import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
sys.dont_write_bytecode = True
from gate import Gate, Simulator, wait_for  # noqa: E402

MAKES = {"axis": "address", "pelco": "line", "secubest": "address", "vivotek": "address"}
SETTINGS = """
[user.anna]
role = "administrator"
onvif_password = "secret"
""" + "".join(f'[picture.{make}]\nstream = "rtsp://127.0.0.1/{make}"\nsnapshot = "http://127.0.0.1/{make}.jpg"\n'
              for make in MAKES) + "[onvif]\ndiscovery = true\n"


def steps(process):
    for line in process.stdout:
        print("  " + line, end="")
        yield line.split()


def main():
    ptzgate, ptzsim = sys.argv[1:]
    simulators = {make: Simulator(ptzsim, make) for make in MAKES}
    gate = Gate(ptzgate, {make: f'driver = "{make}"\n{key} = "{simulators[make].address}"'
                          for make, key in MAKES.items()}, SETTINGS)
    failed = False
    for client in ("onvif.js", "node-onvif.js"):
        for make, simulator in simulators.items():
            print(client, make)

            def is_moving():
                return "'moving': True" in str(simulator.ask("state"))

            process = subprocess.Popen(["node", os.path.join(HERE, client), *gate.host.split(":"), make, "anna", "secret"],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            for words in steps(process):
                if words[0] == "driving":
                    wait_for(is_moving, f"{make} moves")
                elif words[0] == "stopped":
                    wait_for(lambda: not is_moving(), f"{make} rests")
                else:
                    continue
                process.stdin.write("seen\n")
                process.stdin.flush()
            failed |= process.wait() != 0
    for what in (["-a"], ["-u", "anna", "-p", "secret", "127.0.0.1"]):
        # It makes its nonces from the second that it is, and they are good once: one command is asked of it.
        process = subprocess.run(["onvif-util", *what], text=True, capture_output=True, input="get time\nquit\n")
        print(process.stdout)
        failed |= not any(words in process.stdout for words in (f"Found {len(MAKES)} cameras", "serial: "))
    gate.end()
    for simulator in simulators.values():
        simulator.end()
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
