"""An agent of its own, for scripts: in a mount namespace where /var/cache is empty, called over its unix socket."""
import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import time

INSIDE = "TESSARIN_SYSTEM_TEST"
DATA = "/var/cache/velmora/tessarin/k8s/data"


def enter_namespace():
    """Runs the script again where binds and /var/cache are nobody else's, as root or in a user namespace."""
    if os.environ.get(INSIDE):
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/var/cache"], check=True)
        return
    for flags in (["-m"], ["-Urm"]):
        if subprocess.run(["unshare", *flags, "true"], stderr=subprocess.DEVNULL).returncode == 0:
            os.environ[INSIDE] = "1"
            os.execvp("unshare", ["unshare", *flags, "--propagation", "private", sys.executable, *sys.argv])
    sys.exit(f"{sys.argv[0]}: mount namespaces are forbidden here")


class Unix_Connection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("agent", timeout=60)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class Agent:
    def __init__(self, program, state, options=(), tries=1):
        self.program, self.state, self.options, self.tries = program, state, list(options), tries
        self.socket = f"{state}/agent.sock"
        self.log = f"{state}.log"
        self.process = None

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen([self.program, "--state-dir", self.state, *self.options], stderr=log, stdout=log)
        end = time.monotonic() + 30
        while True:
            try:
                return self.call("agent.info")
            except OSError:
                if self.process.poll() is not None or time.monotonic() > end:
                    sys.exit(f"the agent did not start: {open(self.log).read()[-2000:]}")
                time.sleep(0.05)

    def stop(self, with_signal=signal.SIGTERM):
        """The exit code; negative for the signal that ended it."""
        self.process.send_signal(with_signal)
        return self.process.wait(60)

    def call(self, method, params=None):
        """The result. An error answer raises RuntimeError. A connection that is refused, as one of too many, is tried
        again."""
        message = json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params or {}})
        for left in reversed(range(self.tries)):
            try:
                answer = self.ask(message)
                break
            except (BrokenPipeError, ConnectionResetError):
                if left == 0:
                    raise
                time.sleep(0.2)
        if "error" in answer:
            raise RuntimeError(answer["error"]["message"])
        return answer["result"]

    def ask(self, message):
        connection = Unix_Connection(self.socket)
        try:
            connection.request("POST", "/d2/jr", message)
            return json.loads(connection.getresponse().read())
        finally:
            connection.close()

    def wait(self, job):
        """The state that a job has ended in."""
        while True:
            state = self.call("agent.tasks", {"id": job})["tasks"][0]["state"]
            if state not in ("queued", "running"):
                return state
            time.sleep(0.05)

    def port(self):
        """Of the last --listen."""
        lines = [line for line in open(self.log) if " port " in line]
        return int(lines[-1].split(" port ")[1].split(",")[0])

    def token(self):
        return open(f"{self.state}/token").read().strip()

    def cpu_seconds(self):
        """What it has used of processors since its start."""
        fields = open(f"/proc/{self.process.pid}/stat").read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def figures(self):
        """What it holds: memory in KiB, descriptors, threads, mounts below the private directory."""
        pid = self.process.pid
        status = dict(line.split(":", 1) for line in open(f"/proc/{pid}/status") if ":" in line)
        mounts = [line for line in open(f"/proc/{pid}/mountinfo") if "/var/cache/velmora" in line]
        return {
            "rss_kib": int(status["VmRSS"].split()[0]),
            "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
            "threads": int(status["Threads"]),
            "mounts": len(mounts),
        }


def backup_params(pool, name, source, seq, compression=3, channels=2):
    return {
        "paths": [{"data_path": source, "mount_path": f"{DATA}/{name}"}],
        "meta": {"pool_uuid": "pool", "host_uuid": "host", "uuid": f"set{seq}"},
        "minor_resource_id": "volumes",
        "opts": {"compression": compression, "compression_level": 1 if compression else 0, "channel_num": channels},
        "seq": seq, "subtype": "full", "max_seconds_retry": 0, "resumption_buffer_size": 10485760, "access_key": "",
        "pool_info": {"uuid": "pool", "name": "pool", "url": f"file://{pool}"},
    }


def restore_params(pool, name, target, seq, channels=2):
    return {
        "rules": {f"{DATA}/{name}": target}, "total_size": 1, "node_name_hex": "", "minor_resource_id": "volumes",
        "pool_uuid": "pool", "host_uuid": "host", "seq": seq, "incarnation": 0, "channel_num": channels, "concurrent": 4,
        "max_seconds_retry": 0, "resumption_buffer_size": 10485760, "access_key": "",
        "pool_info": {"uuid": "pool", "name": "pool", "url": f"file://{pool}"},
    }
