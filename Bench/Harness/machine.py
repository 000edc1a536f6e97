"""What all of it ran on."""
import os
import platform
import subprocess

from Harness.peers import PEERS


def value_of(path, key):
    with open(path, encoding="utf-8") as file:
        for line in file:
            name, _, value = line.partition(":" if ":" in line else "=")
            if name.strip() == key:
                return value.strip().strip('"')
    return "unknown"


def machine():
    return {
        "processor": value_of("/proc/cpuinfo", "model name"),
        "cores": os.cpu_count(),
        "memory": f"{int(value_of('/proc/meminfo', 'MemTotal').split()[0]) / 2**20:.0f} GiB",
        "kernel": f"{platform.system()} {platform.release()}",
        "load when it began": f"{os.getloadavg()[0]:.2f}",
        "system": value_of("/etc/os-release", "PRETTY_NAME"),
    }


def first_line(*words):
    try:
        answer = subprocess.run(words, capture_output=True, text=True)
        return (answer.stdout or answer.stderr).splitlines()[0]
    except (OSError, IndexError):
        return "missing"


def versions(field):
    """Of everything that took part, by title."""
    result = {"server": field.server.version, "shell": field.ground.shell,
              "sudo": first_line("sudo", "--version"), "Python": platform.python_version()}
    for name, version in field.programs.versions.items():
        result[PEERS[name].title] = version
    return result
