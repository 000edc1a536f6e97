#!/usr/bin/python3
"""What sshsession says of failures, each of which is brought about by real servers, files and networks.

    causes.py SSHSESSION [PATTERN]          checks the cause and the first finding in each row of the table
    causes.py --show SSHSESSION [PATTERN]   prints what a user reads: of the plain run, and of --doctor

As root all of it happens in namespaces with users, name servers and routes of its own, which are gone with
the process; without, the rows that need them are left out. With a server's name in place of a function, a
row's server is an sshd with these settings; see `run` for a row's other members.
"""
import atexit, concurrent.futures, contextlib, ctypes, fcntl, functools, itertools, json, os, pathlib, pty, random, re, shutil
import jsonschema, signal, socket, struct, subprocess, sys, tempfile, termios, threading, time, traceback

HERE = pathlib.Path(__file__).resolve().parent
SCHEMA = jsonschema.Draft202012Validator(json.loads((HERE.parent / "Docs/sshsession.schema.json").read_text()))
INSIDE = os.environ.get("SSHSESSION_CAUSES") == "inside"
PATIENCE = 60  # seconds, for what takes moments


def tell(*words, **more):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True, **more).stdout


def write(path, content, mode=0o600):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content if isinstance(content, bytes) else content.encode())
    path.chmod(mode)
    return path


def until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError("waited in vain")
        time.sleep(0.005)


def thread(function, *arguments):
    threading.Thread(target=function, args=arguments, daemon=True).start()


def enter_namespaces():
    words = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if not INSIDE and os.geteuid() == 0 and not subprocess.run([*words, "true"], capture_output=True).returncode:
        os.environ["SSHSESSION_CAUSES"] = "inside"
        os.execvp("unshare", [*words, sys.executable, *sys.argv])


def make_base():
    if INSIDE:
        tell("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/mnt")
        return pathlib.Path("/mnt")
    path = tempfile.mkdtemp()
    atexit.register(shutil.rmtree, path, ignore_errors=True)
    return pathlib.Path(path)


def make_key(name, *more, passphrase=""):
    tell("ssh-keygen", "-q", "-N", passphrase, "-C", name, "-f", BASE / name, *(more or ["-t", "ed25519"]))
    return BASE / name


def public(path):
    return " ".join(path.with_suffix(".pub").read_text().split()[:2])


# --- The computer

SHELLS = {"nologin": "/usr/sbin/nologin", "noshell": "/no/such/shell", "chatty": "/mnt/chatty"}
USERS = ["ada", "bob", "barred", "locked", "aged", "expired", "tty", "jailed", "late", *SHELLS]


def make_users():
    """Each with the password "sesame". A copy of all that is in /etc: a mount on a single file goes away when somebody
    elsewhere puts another in its place."""
    subprocess.run(["cp", "-a", "/etc", BASE], stderr=subprocess.DEVNULL)  # locks there come and go
    tell("mount", "--bind", BASE / "etc", "/etc")
    secret = tell("openssl", "passwd", "-6", "sesame").strip()
    passwd, shadow = (pathlib.Path("/etc", name).read_text() for name in ("passwd", "shadow"))
    for number, name in enumerate(USERS):
        passwd += f"{name}:x:{3000 + number}:100::{BASE}/users:{SHELLS.get(name, '/bin/sh')}\n"
        shadow += (f"{name}:{'!' * (name == 'locked')}{secret}:{0 if name == 'aged' else 19000}:0:99999:7::"
                   f"{1 if name == 'expired' else ''}:\n")
    pam = "".join(f"{kind} required pam_unix.so\n" for kind in ("auth", "account", "password"))
    hangs = "auth [success=1 default=ignore] pam_succeed_if.so quiet user != late\nauth required pam_exec.so /bin/sleep 60\n"
    for name, content, mode in (
            ("passwd", passwd, 0o644), ("shadow", shadow, 0o600), ("pam.d/sshd", pam + "session optional pam_permit.so\n", 0o644),
            ("pam.d/sudo", hangs + pam + "session optional pam_permit.so\n", 0o644),
            ("sudoers", "Defaults lecture=never\nDefaults:tty requiretty\nada,chatty,tty,late ALL=(ALL) ALL\n", 0o440),
            ("resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n", 0o644),
            ("hosts", f"127.0.0.1 localhost {socket.gethostname()}\n", 0o644)):
        pathlib.Path("/etc", name).unlink()
        write(pathlib.Path("/etc", name), content, mode)
    for home in ("users", "jail/mnt/users"):
        write(BASE / home / ".ssh/authorized_keys", public(KEY) + "\n", 0o644)
    write(BASE / "chatty", "#!/bin/sh\necho Welcome\nexec /bin/sh \"$@\"\n", 0o755)
    for file in ["/bin/sh", *re.findall(r"/\S+", tell("ldd", "/bin/sh"))]:  # a system without sudo
        write(BASE / "jail" / file[1:], pathlib.Path(file).read_bytes(), 0o755)


def make_network():
    for words in ("link set lo up", "link add near type veth peer name far", "address add 192.0.2.1/24 dev near",
                  "link set near up", "link set far up",
                  "neighbour add 192.0.2.9 lladdr 02:00:00:00:00:09 dev near",  # takes packets, and never answers
                  "route add unreachable 198.51.100.0/24", "route add prohibit 203.0.113.0/24"):
        tell("ip", *words.split())
    server = socket.socket(type=socket.SOCK_DGRAM)
    server.bind(("127.0.0.1", 53))
    thread(serve_names, server)


def serve_names(server):
    """Knows six.test as ::1, fails for fails.test, is silent about silent.test, and knows no other name."""
    while True:
        query, client = server.recvfrom(2000)
        question = query[12:query.index(0, 12) + 5]
        if b"\6silent" in query:
            continue
        code = 2 if b"\5fails" in query else 0 if b"\3six" in query else 3
        answer = struct.pack(">HHHIH", 0xc00c, 28, 1, 9, 16) + bytes(15) + b"\1"
        answers = answer if code == 0 and question[-3] == 28 else b""
        server.sendto(query[:2] + struct.pack(">5H", 0x8180 | code, 1, bool(answers), 0, 0) + question + answers, client)


# --- Servers, each started when the first row wants it. They have the same host key.

lock, logs, host_keys, kept = threading.RLock(), {}, {}, []


def once(function):
    cached = functools.cache(function)

    @functools.wraps(function)
    def locked(*arguments):
        with lock:
            return cached(*arguments)
    locked.is_server = True
    return locked


def die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def spawn(*words, **more):
    kept.append(subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, preexec_fn=die_with_parent, **more))
    return kept[-1]


def serve(port, ready, *words):
    log = BASE / f"log{len(kept)}"
    with open(log, "wb") as output:
        process = spawn(*words, stdout=output, stderr=subprocess.STDOUT)
    until(lambda: re.search(ready, log.read_text()) or process.poll() is not None)
    found = re.search(ready, log.read_text())
    if not found:
        raise RuntimeError(log.read_text())
    logs[port or int(found[1])] = log
    return port or int(found[1])


def free_port():
    """One of those that the system gives to nobody by itself."""
    while True:
        port = random.randrange(10000, 32768)
        with contextlib.suppress(OSError), socket.create_server(("127.0.0.1", port)):
            return port


@once
def sshd(settings):
    os.makedirs("/run/sshd", exist_ok=True)
    port = free_port()
    most = "" if "MaxStartups" in settings else "MaxStartups 1000"
    config = write(BASE / f"sshd{port}", "\n".join([
        *settings.split("; "), most, f"Port {port}", "ListenAddress 127.0.0.1", f"HostKey {HOST}", "PidFile none",
        f"AuthorizedKeysFile {BASE}/authorized_keys", "StrictModes no", "PasswordAuthentication no",
        "KbdInteractiveAuthentication no", "PermitRootLogin yes", "LogLevel VERBOSE\n"]))
    return serve(port, "Server listening", "/usr/sbin/sshd", "-D", "-e", "-f", config)


def with_python(script, *words):
    return once(lambda: serve(None, "port ([0-9]+)", "/usr/bin/python3", "-W", "ignore", HERE / script, HOST, *words))


@once
def dropbear():
    port, key = free_port(), BASE / f"dropbear{len(kept)}"
    host_keys[port] = re.search("ecdsa-[^ ]* [^ ]*", tell("dropbearkey", "-t", "ecdsa", "-f", key))[0]
    return serve(port, "background|forking", "/usr/sbin/dropbear", "-F", "-E", "-r", key, "-p", f"127.0.0.1:{port}")


@once
def raw(answer):
    """`answer` has the connection; the end of it is the end of the connection."""
    server = socket.create_server(("127.0.0.1", 0))

    def serve_one(connection):
        with contextlib.suppress(OSError), connection:
            answer(connection)

    def accept():
        while True:
            thread(serve_one, server.accept()[0])
    thread(accept)
    return server.getsockname()[1]


def says(words, hears=False):
    """Says this, and goes on until the client leaves; or hears the client, says this, and hangs up."""
    def answer(connection):
        if hears:
            connection.recv(9999)
        connection.sendall(words)
        while not hears and connection.recv(9999):
            pass
        hangs_up(connection)
    return answer


def hangs_up(connection):
    connection.shutdown(socket.SHUT_RDWR)


def resets(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("2i", 1, 0))


def resets_later(connection):
    connection.sendall(VERSION)
    connection.recv(10)
    resets(connection)


def offers(**instead):
    """A list of algorithms (RFC 4253, section 7.1) like another server's, but for these."""
    usual = {"kex": "curve25519-sha256", "key": "ecdsa-sha2-nistp256", "cipher": "aes128-ctr", "mac": "hmac-sha2-256", "zip": "none"}
    names = [{**usual, **instead}.get(kind, "") for kind in "kex key cipher cipher mac mac zip zip - -".split()]
    payload = b"\x14" + bytes(16) + b"".join(struct.pack(">I", len(name)) + name.encode() for name in names) + bytes(5)
    padding = 16 - (len(payload) + 5) % 8
    return says(VERSION + struct.pack(">IB", len(payload) + padding + 1, padding) + payload + bytes(padding))


def cut(end):
    """Passes everything on to an sshd and back, until the row's flag appears; then `end` is done to the client's side."""
    def answer(client):
        server, flag = socket.create_connection(("127.0.0.1", sshd(""))), BASE / f"flag{client.getsockname()[1]}"

        def passes(source, target):
            with contextlib.suppress(OSError):
                while (data := source.recv(65536)) and not flag.exists():
                    target.sendall(data)
        thread(passes, client, server)
        thread(passes, server, client)
        until(flag.exists)
        end(client)
    return answer


@once
def busy():
    kept.append(socket.create_connection(("127.0.0.1", port := sshd("MaxStartups 1; LoginGraceTime 0"))))
    kept[-1].recv(10)
    return port


@once
def full():
    """Its queue holds one connection, which nobody takes."""
    kept.append(server := socket.create_server(("127.0.0.1", 0), backlog=0))
    kept.append(socket.create_connection(server.getsockname()))
    return server.getsockname()[1]


@once
def agent(*keys):
    spawn("ssh-agent", "-D", "-a", path := BASE / f"agent{len(kept)}", stdout=subprocess.DEVNULL)
    until(path.exists)
    if keys:
        tell("ssh-add", "-q", *keys, env={"SSH_AUTH_SOCK": str(path)})
    return path


# --- One run of the program

homes = itertools.count()


def run(mode, server, words="", *, host="127.0.0.1", user="", command="true", key=None, password=None, sudo=None, known=None,
        files=None, mode_of_files=0o600, before=None, agent_of=None, answers=None, as_ada=False, interrupt=False,
        idle=False):
    """Answers the output, the error output, what stood on the terminal, and what the server logged meanwhile. `key` is a file
    in the new home directory or elsewhere, `known` are the lines of known hosts, `answers` is what is typed at a terminal
    (without, there is none), `files` are made in the home directory (None: a directory), then `before` is called with that.
    `idle` makes that terminal the standard input, which is empty otherwise."""
    home = BASE / f"home{next(homes)}"
    (home / ".ssh").mkdir(parents=True, mode=0o700)
    port = (server if isinstance(server, int) else sshd(server) if isinstance(server, str) else
            server() if hasattr(server, "is_server") else raw(server))
    files = {".ssh/known_hosts": f"127.0.0.1 {host_keys.get(port) or public(HOST)}\n" if known is None else known.replace("{port}", str(port)),
             "password": password, "admin": sudo, **(files or {})}
    for name, content in files.items():
        if content is not None and (content or name != ".ssh/known_hosts"):
            write(home / name, content.read_bytes() if isinstance(content, pathlib.Path) else content, mode_of_files)
    flag = BASE / f"flag{port}"
    flag.unlink(missing_ok=True)
    before and before(home)
    as_ada and tell("chown", "-R", "ada", home)
    words = [*(["setpriv", "--reuid", "ada", "--clear-groups"] if as_ada else []), TOOL, "-p", port, *words.split(), *mode,
             *(["-i", home / key] if key else []), *(["--password-from", home / "password"] if password is not None else []),
             *(["--admin-password-from", home / "admin"] if sudo is not None else []), (user and user + "@") + host,
             *([] if "--doctor" in mode else command.replace("{flag}", str(flag)).split(" "))]
    environment = {"PATH": os.environ["PATH"], "HOME": str(home), **({"SSH_AUTH_SOCK": str(agent_of())} if agent_of else {})}
    return communicate(words, environment, answers, interrupt and flag, logs.get(port), idle)


def communicate(words, environment, answers, flag, log, idle):
    terminal, slave = pty.openpty()

    def prepare():
        die_with_parent()
        if answers is not None:
            fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
    seen = log.stat().st_size if log else 0
    process = subprocess.Popen([str(word) for word in words], env=environment, stdin=slave if idle else subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, start_new_session=True, pass_fds=[slave], preexec_fn=prepare)
    os.close(slave)
    thread(type_answers, terminal, list(answers or []), shown := [])
    try:
        if flag:
            until(flag.exists)
            process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=2 * PATIENCE)
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
    return out, err, "".join(shown), log.read_bytes()[seen:].decode(errors="replace") if log else ""


def type_answers(terminal, answers, shown):
    """One whenever a question stands at the end."""
    try:
        while True:
            shown.append(os.read(terminal, 4096).decode(errors="replace"))
            if re.search(r"[:>] $", "".join(shown)):
                os.write(terminal, ((answers.pop(0) if answers else "") + "\n").encode())
    except OSError:  # as the program ends
        os.close(terminal)


# --- The table

def rows():
    """The name, the cause, the first finding, what the server or the program says that proves it, then `run`'s arguments."""
    def row(name, cause, finding, server, *words, proof="", **more):
        table.append((name, cause, finding, proof, functools.partial(run, server=server, words=" ".join(words), **more)))
    table, classic, second, key = [], "--classic", "--timeout 1", {"key": KEY}
    secret, authorised = KEY.read_text(), KEY.with_suffix(".pub").read_text()
    limit = "--connect-timeout 1"

    # --- Connecting
    row("host name unknown", "nameNotFound", "hostNameUnknown", 22, host="no-such.test")
    row("host is a URL", "nameNotFound", "hostIsNoName", 22, host="ssh://db.test")
    row("host has a path", "nameNotFound", "hostIsNoName", 22, host="db.test:/var")
    row("host has a space", "nameNotFound", "hostIsNoName", 22, host="db test")
    row("name server silent", "nameServerFailed", "nameServerSilent", 22, host="silent.test")
    row("name server fails", "nameServerFailed", "nameServerSilent", 22, host="fails.test")
    row("IPv6 alone, classic", "noUsableAddress", "hostHasNoIPv4", 22, classic, host="six.test")
    row("IPv6 alone, -4", "noUsableAddress", "hostHasNoSuchAddress", 22, "-4", host="six.test")
    row("port refused", "refused", "connectionRefused", free_port())
    row("port refused, classic", "refused", "connectionRefused", free_port(), classic)
    row("packets dropped", "connectTimedOut", "connectionDropped", 22, limit, host="192.0.2.9")
    row("full queue", "connectTimedOut", "connectionDropped", full, limit)
    row("host switched off", "unreachable", "hostUnreachable", 22, host="192.0.2.7")
    row("no route", "unreachable", "hostUnreachable", 22, host="192.88.99.1")
    row("router says unreachable", "unreachable", "hostUnreachable", 22, host="198.51.100.1")
    row("router prohibits", "unreachable", "connectionForbidden", 22, host="203.0.113.1")
    row("router prohibits, classic", "unreachable", "connectionForbidden", 22, classic, host="203.0.113.1")

    # --- The handshake
    row("HTTP", "notSSH", "speaksHTTP", says(b"HTTP/1.1 400 Bad Request\r\nServer: nginx\r\nContent-Length: 0\r\n\r\n", True))
    row("TLS", "notSSH", "speaksTLS", says(b"\x15\3\1\0\2\2\x46", True))  # an alert
    row("MySQL", "notSSH", "speaksOtherProtocol", says(b"J\0\0\0\n8.0.36\0\x0b\0\0\0abcdefgh\0\xff\xf7mysql_native_password\0"),
        proof="MySQL or MariaDB")
    row("mail", "handshakeTimedOut", "speaksOtherProtocol", says(b"220 mail.test ESMTP Postfix\r\n"))
    row("Redis", "notSSH", "speaksOtherProtocol", says(b"-ERR unknown command\r\n", True))
    row("SSH 1", "notSSH", "speaksSSH1", says(b"SSH-1.5-1.2.27\nProtocol major versions differ.\n", True))
    row("silence", "handshakeTimedOut", "serverSilent", says(b""))
    row("silence after the version", "handshakeTimedOut", "handshakeSlow", says(VERSION))
    row("closed at once", "closedEarly", "serverHungUpAtOnce", hangs_up)
    row("closed at once, classic", "closedEarly", "serverHungUpAtOnce", hangs_up, classic)
    row("reset at once", "closedEarly", "serverHungUpAtOnce", resets)
    row("MaxStartups", "closedEarly", "serverTooBusy", busy, proof="past MaxStartups")
    row("penalty", "closedEarly", "serverPenalty", says(b"Not allowed at this time\r\n", True))
    row("reset after the version", "connectionLost", "handshakeCutOff", resets_later)
    row("no common key exchange", "noCommonKeyExchange", "noCommonKeyExchange", "KexAlgorithms sntrup761x25519-sha512@openssh.com")
    row("no common MAC", "noCommonMAC", "noCommonMAC", "Ciphers aes128-ctr; MACs umac-64@openssh.com")
    row("no common cipher", "noCommonCipher", "noCommonCipher", offers(cipher="twofish256-cbc"))
    row("no common host key", "noCommonHostKey", "noCommonHostKey", offers(key="ssh-ed448"))
    row("no common compression", "noCommonCompression", "handshakeFailed", offers(zip="lzma"))

    # --- The host key
    row("host key unknown", "hostKeyUnknownUnasked", "hostKeyUnasked", "", known="")
    row("host key unknown, classic", "hostKeyUnknownUnasked", "hostKeyUnasked", "", classic, known="")
    row("host key unknown, declined", "hostKeyUnknownDeclined", "hostKeyUnknown", "", known="", answers=["2"])
    here = "[127.0.0.1]:{port}"
    other = f"{here} {public(OTHER_HOST)}\n127.0.0.1 {public(OTHER_HOST)}\n"
    row("host key changed", "hostKeyChangedUnasked", "hostKeyChanged", "", known=other)
    row("host key changed, classic", "hostKeyChangedUnasked", "hostKeyChanged", "", classic, known=other)
    row("host key changed, declined", "hostKeyChangedDeclined", "hostKeyChanged", "", known=other, answers=["2"])
    row("host key under another port", "hostKeyUnknownUnasked", "hostKeyOtherPort", "", known=f"[127.0.0.1]:2 {public(HOST)}\n")
    row("host key of another type", "hostKeyChangedUnasked", "hostKeyOtherType", "", known=f"{here} {public(KEY)}\n")
    row("host key revoked", "hostKeyRevoked", "hostKeyRevoked", "", known=f"@revoked * {public(HOST)}\n")
    row("known hosts with a bad line, classic", "hostKeyUnknownUnasked", "knownHostsBadLine", "", classic,
        known=f"<<<<<<< HEAD\n127.0.0.1 {public(HOST)}\n")
    row("known hosts with line ends of Windows, classic", "hostKeyChangedUnasked", "knownHostsBadLine", "", classic,
        known=f"127.0.0.1 {public(HOST)}\r\n")
    directory = {"known": "", "before": lambda home: (home / ".ssh/known_hosts").mkdir()}
    row("known hosts a directory", "hostKeyUnknownUnasked", "knownHostsUnreadable", "", **directory)
    row("known hosts a directory, classic", "hostKeyUnknownUnasked", "knownHostsUnreadable", "", classic, **directory)
    no_directory = {"known": "", "before": lambda home: (home / ".ssh").rmdir()}
    row("no ~/.ssh", "hostKeyUnknownUnasked", "hostKeyUnasked", "", **no_directory)
    row("no ~/.ssh, classic", None, "sshDirectoryMissing", "", classic, **no_directory, **key, answers=["1"])
    row("known hosts not writable", None, "knownHostsUnwritten", "", known="", answers=["1"], as_ada=True, user="ada",
        key="key", files={"key": KEY}, before=lambda home: (home / ".ssh").chmod(0o500))

    # --- Passwords and answers
    takes, pam, ada = "PasswordAuthentication yes", "UsePAM yes; KbdInteractiveAuthentication yes", {"user": "ada"}
    failed = "Failed password for ada"
    row("password wrong", "passwordRefused", "passwordRefused", takes, **ada, password="wrong", proof=failed)
    row("password wrong, classic", "passwordRefused", "passwordRefused", takes, classic, **ada, password="wrong", proof=failed)
    row("password wrong, asked by PAM", "passwordRefused", "passwordRefused", pam, **ada, password="wrong", proof="PAM: Auth")
    row("password wrong, by both", "passwordRefused", "passwordRefused", scripted,
        user="password,keyboard-interactive '|Answer|-Password: '", password="wrong")
    row("password empty", "passwordRefused", "passwordEmpty", takes, **ada, password="")
    row("password missing", "passwordMissing", "passwordMissing", takes, **ada)
    row("password missing, classic", "passwordMissing", "passwordMissing", takes, classic, **ada)
    row("password missing, asked by PAM", "passwordMissing", "passwordMissing", pam, **ada)
    row("password not taken", "noWayIn", "passwordNotOffered", "", password="sesame")
    row("password expired", "passwordExpired", "passwordExpired", scripted, user="password expired", password="old")
    row("password expired, told by the shell", None, "passwordExpired", "UsePAM yes; " + takes, user="aged", password="sesame")
    row("account expired", "connectionLost", "logInHungUp", "UsePAM yes; " + takes, user="expired", password="sesame",
        proof="Access denied for user expired by PAM")
    row("unknown user", "passwordRefused", "passwordRefused", takes, user="nobody-here", password="x", proof="Invalid user")
    row("barred user", "passwordRefused", "passwordRefused", takes + "; DenyUsers barred", user="barred", password="sesame",
        proof="listed in DenyUsers")
    row("barred user with a key", "keyRefused", "keyRefused", "DenyUsers barred", **key, user="barred", proof="in DenyUsers")
    row("locked account with a key", "keyRefused", "keyRefused", "", **key, user="locked", proof="account is locked")
    row("a shell that is not there", "keyRefused", "keyRefused", "", **key, user="noshell", proof="/no/such/shell does not")
    questions = "keyboard-interactive '|Code|+Token: |+Pin: '"
    row("a wrong code", "answersRefused", "answersRefused", scripted, user=questions, answers=["1", "wrong"])
    row("questions for nobody", "answersMissing", "answersMissing", scripted, user=questions)
    row("questions that are not shown", "answersMissing", "questionsNotAsked", scripted, classic, user=questions, password="x")
    row("refused without a question", "passwordMissing", "passwordMissing", "KbdInteractiveAuthentication yes; " + takes, **ada)
    row("key and password, classic", "signatureRefused", "signatureRefused",
        "AuthenticationMethods publickey,password; " + takes, classic, **key, user="ada", password="sesame", proof="Partial publickey")
    row("only methods of others", "noWayIn", "noUsableMethod", scripted, user="hostbased,gssapi-with-mic")
    row("no keys taken", "noWayIn", "keysNotOffered", scripted, **key, user="hostbased")
    row("no method", "noWayIn", "noUsableMethod", scripted, user="nothing")
    row("methods untold", "disconnectedByServer", "logInHungUp", scripted, user="disconnect 11")
    row("disconnected at log-in", "disconnectedByServer", "logInHungUp", scripted, password="x",
        user="password disconnect 2 'Maintenance until noon' en")
    row("log-in silent", "logInTimedOut", "logInSlow", scripted, user="password silent", password="x")
    row("keepalive before the log-in, Dropbear", "connectionLost", "keepAliveRefused", dropbear, classic, **key,
        proof="message 80 before userauth")
    row("keepalive before the log-in, AsyncSSH", "disconnectedByServer", "keepAliveRefused",
        with_python("Peers/asyncssh_peer.py", KEY.with_suffix(".pub")), classic, **key)

    # --- Two factors
    both = takes + "; AuthenticationMethods publickey,password"
    partial = {**ada, "proof": "Partial (publickey|password)"}
    row("key, then password missing", "moreWanted", "moreFactorsWanted", both, **key, **partial)
    row("key, then password wrong", "passwordRefused", "passwordRefused", both, **key, **partial, password="x")
    row("key, then a code asked of nobody", "moreWanted", "moreFactorsWanted", scripted, **key, user="publickey>" + questions)
    row("password, then key missing", "moreWanted", "moreFactorsWanted", takes + "; AuthenticationMethods password,publickey",
        **partial, password="sesame")

    # --- Keys
    def file(name, cause, finding, content, mode=0o600):
        row(name, cause, finding, "", key="key", files={"key": content}, mode_of_files=mode)
    row("key missing", "keyMissing", "keyMissing", "", key="nowhere")
    row("key missing, classic", "keyMissing", "keyMissing", "", classic, key="nowhere")
    row("key a directory", "keyUnreadable", "keyUnreadable", "", key=".ssh")
    row("key of another user's", "keyUnreadable", "keyUnreadable", "", **key, **ada, as_ada=True)
    file("key in PuTTY's format", "keyUnreadable", "keyIsPuTTY", "PuTTY-User-Key-File-3: ssh-ed25519\nEncryption: none\n")
    file("key public", "keyUnreadable", "keyIsPublic", authorised)
    file("key garbage", "keyUnreadable", "keyIsNoKey", "Dear Ada,\nsee the attachment.\n")
    file("key cut off", "keyUnreadable", "keyUnreadable", secret[:120])
    file("key exposed", "keyUnreadable", "keyExposed", secret, 0o644)
    row("key encrypted, nobody asked", "keyEncrypted", "keyEncrypted", "", key=ENCRYPTED)
    row("key encrypted, classic", "keyEncrypted", "keyEncrypted", "", classic, key=ENCRYPTED)
    row("pass phrase wrong", "keyEncrypted", "passphraseWrong", "", key=ENCRYPTED, answers=["x", "y", "z"])
    row("public file missing, classic", "noWayIn", "publicFileMissing", "", classic, files={".ssh/id_rsa": RSA})
    row("public file foreign, classic", "signatureRefused", "publicFileForeign", "", classic,
        files={".ssh/id_rsa": OTHER_RSA, ".ssh/id_rsa.pub": RSA.with_suffix(".pub")})
    row("key not authorised", "keyRefused", "keyRefused", "", key=OTHER)
    row("key not authorised, classic", "keyRefused", "keyRefused", "", classic, key=OTHER)
    row("key type refused", "keyRefused", "keyRefused", "PubkeyAcceptedAlgorithms rsa-sha2-256", **key, proof="not in Pubkey")
    row("no key at all", "noWayIn", "noUsableMethod", "")
    row("ed25519 key there, classic", "noWayIn", "keyNotTried", "", classic,
        files={".ssh/id_ed25519": KEY, ".ssh/id_ed25519.pub": authorised})
    row("key of another name", "noWayIn", "keyNotTried", "", files={".ssh/work": KEY, ".ssh/work.pub": authorised})
    row("agent dead", "agentFailed", "agentDead", "", agent_of=lambda: "/no/such/agent")
    row("agent empty", "noWayIn", "agentEmpty", "", agent_of=agent)
    crowd = {"agent_of": lambda: agent(*CROWD)}
    row("agent with wrong keys", "keyRefused", "keyRefused", "MaxAuthTries 20", **crowd)
    row("agent with too many keys", "disconnectedByServer", "tooManyKeys", "MaxAuthTries 3", **crowd,
        proof="Too many authentication failures")
    row("too many keys given", "disconnectedByServer", "tooManyKeys", "MaxAuthTries 4", *(f"-i {each}" for each in CROWD[:6]),
        proof="Give fewer key files, the right one first")
    row("agent with too many keys, classic", "disconnectedByServer", "tooManyKeys", "", classic, **key, **crowd,
        proof="Too many authentication failures")

    # --- Commands
    def script(command):
        return {"user": "password", "password": "x", "command": command}
    row("command not found", None, "commandNotFound", "", **key, command="no-such-command")
    row("command not executable", None, "commandNotExecutable", "", **key, command="/etc/passwd")
    row("command killed", None, "commandKilled", "", **key, command="kill -KILL $$")
    row("command terminated", None, "commandKilled", "", **key, command="kill -TERM $$")
    row("command too long", None, "commandTooLong", "", **key, command="true" + 2 * (" " + "x" * 99999))
    row("input unreadable", "inputUnreadable", "inputUnreadable", "", "--stdin /proc/self/mem", **key, command="cat")
    row("command refused", "commandRefused", "commandRefused", scripted, **script("refused"))
    row("no session", "sessionRefused", "sessionRefused", "MaxSessions 0", **key)
    row("no session by nologin", None, "shellNotAvailable", "", **key, user="nologin")
    row("files alone", None, "commandRefused", "ForceCommand internal-sftp", **key)
    row("command waits for input", "commandTimedOut", "commandSlow", "", second, **key, command="cat", idle=True)
    row("command slow", "commandTimedOut", "commandSlow", "", second, **key, command="echo begun; sleep 9")
    row("server killed during a command", "connectionLost", "connectionLost", "", **key, command="kill -KILL $PPID")
    flagged = {**key, "command": "echo begun; touch {flag}; sleep 9"}
    row("connection closed during a command", "connectionLost", "connectionLost", cut(hangs_up), **flagged)
    row("connection reset during a command", "connectionLost", "connectionReset", cut(resets), **flagged)
    row("link silent during a command", "commandTimedOut", "commandSlow", cut(lambda client: time.sleep(PATIENCE)), second,
        **flagged)
    row("disconnected during a command", "disconnectedByServer", "serverDisconnected", scripted,
        **script("out x; disconnect 11 'Going down for maintenance' en"))
    row("cancelled", "cancelled", "cancelled", "", **flagged, interrupt=True)
    sudo = {**key, "command": "id", "sudo": "sesame"}
    row("sudo, password wrong", "sudoRefused", "sudoPasswordWrong", "", **{**sudo, "sudo": "wrong"}, **ada)
    row("sudo, password wrong, classic", "sudoRefused", "sudoPasswordWrong", "", classic, **{**sudo, "sudo": "wrong"}, **ada)
    row("sudo, not in sudoers", "sudoRefused", "sudoNotAllowed", "", **sudo, user="bob")
    row("sudo, needs a terminal", "sudoRefused", "sudoNeedsTerminal", "", **sudo, user="tty")
    row("sudo, missing", "sudoRefused", "sudoMissing", f"ChrootDirectory {BASE}/jail", **sudo, user="jailed")
    row("sudo, a shell that speaks, classic", "sudoSilent", "sudoHiddenByShell", "", classic, **sudo, user="chatty")
    row("sudo, silent", "sudoSilent", "sudoSilent", "", **sudo, user="late")
    row("sudo, silent, with a limit", "commandTimedOut", "sudoSilent", "", second, **sudo, user="late")
    return table


SLOW = {"log-in silent", "silence", "silence after the version", "mail", "sudo, a shell that speaks, classic", "sudo, silent"}


# --- What is made of it

def check(name, cause, finding, proof, attempt):
    out, err, terminal, log = attempt(["--json"])
    report = json.loads(out) if out.startswith("{") else {}
    findings = [each["id"] for each in report.get("findings", [])]
    seen = report.get("cause"), (findings or [None])[0]
    faults = [f"{each.json_path}: {each.message}" for each in SCHEMA.iter_errors(report)]
    proven = re.search(proof, out + err + log)
    if report and seen == (cause, finding) and proven and not faults:
        return ""
    return (f"{seen} instead of {(cause, finding)}{'' if proven else ', and nothing says ' + proof}; findings: {findings}; "
            f"against the schema: {faults}\n"
            f"{json.dumps(report, indent=1) if report else out}\n{err}{terminal}--- the server's log:\n{log[-3000:]}")


def show(_name, _cause, _finding, _proof, attempt):
    plain = attempt([])[1].strip().splitlines()
    needs_command = attempt.keywords.get("interrupt")
    doctor = ("", "") if needs_command else attempt(["--doctor"])
    told = [line for line in (doctor[0] + doctor[1]).splitlines() if re.match(r"\s*(FAIL|try|note)", line)]
    return "\n".join(["```", *plain[-8:], "", *told, "```"])


def needs_namespaces(attempt):
    return attempt.keywords.get("user") in USERS or "host" in attempt.keywords


def examine(mode, pattern):
    def one(each):
        try:
            return mode(*each)
        except Exception:
            return traceback.format_exc()
    chosen = [each for each in rows() if re.search(pattern, each[0])]
    left_out = [each[0] for each in chosen if not INSIDE and needs_namespaces(each[-1])]
    chosen = [each for each in chosen if each[0] not in left_out]
    pool = concurrent.futures.ThreadPoolExecutor(4 + len(SLOW))
    jobs = {each[0]: pool.submit(one, each) for each in sorted(chosen, key=lambda each: each[0] not in SLOW)}
    results = {each[0]: jobs[each[0]].result() for each in chosen}
    for name, result in results.items():
        if result:
            print(f"\n## {name}\n\n{result}", flush=True)
    if left_out:
        print(f"*** {len(left_out)} causes are not tested, as they take root and namespaces: {'; '.join(left_out)} ***")
    if mode is check:
        print(f"{list(results.values()).count('')} of {len(results)} causes are told as they are.")
    return not results or (mode is check and any(results.values()))


if __name__ == "__main__":
    enter_namespaces()
    BASE, VERSION = make_base(), b"SSH-2.0-OpenSSH_9.2\r\n"
    HOST, OTHER_HOST = (make_key(name, "-t", "ecdsa") for name in ("host", "other_host"))
    RSA, OTHER_RSA = (make_key(name, "-t", "rsa", "-b", "2048") for name in ("rsa", "other_rsa"))
    KEY, OTHER, ENCRYPTED = make_key("key"), make_key("other"), make_key("encrypted", passphrase="open")
    CROWD = [make_key(f"crowd{number}") for number in range(8)]
    write(BASE / "authorized_keys", "".join(f"{public(key)}\n" for key in (KEY, ENCRYPTED, RSA)), 0o644)
    if INSIDE:
        make_users()
        make_network()
    scripted = with_python("scripted_server.py")
    arguments = sys.argv[1:]
    mode = show if arguments[:1] == ["--show"] and arguments.pop(0) else check
    TOOL, pattern = arguments[0], (arguments + [""])[1]
    sys.exit(examine(mode, pattern))
