#include "Diagnosis/FindingTexts.h"

#include <array>

namespace SSHEngine {

namespace {

using enum SSHFindingID;

constexpr const char *noFixedTexts = "";
constexpr const char *nameUnknown =
    "Could not look up the host. Error: Name or service not known (-2).";
constexpr const char *cannotLogIn =
    "SSH could not authenticate with any of the available authentication methods.";
constexpr const char *handshakeFailed = "Could not complete the handshake.";
constexpr const char *noKeyExchange =
    "Could not complete the handshake. Encryption key exchange with the remote host failed.";
constexpr const char *hungUp = "Could not complete the handshake. The socket was disconnected.\n"
                               "Could not complete the handshake. Error -13.";
constexpr const char *unknownKey =
    "The server does not match not in ~/.ssh/known_hosts. Do you want to add it to the list and "
    "connect?";
constexpr const char *changedKey =
    "The server's identity does not match the existing entry in ~/.ssh/known_hosts. This could be "
    "because the server's identity has changed or a Man-in-the-Middle attack.";
constexpr const char *notWritten = "Updating the known hosts file failed.\n"
                                   "Adding the host fingerprint to the known hosts lists failed.";
constexpr const char *sudoRefused =
    "The SSH user was not able to use sudo. The password was not accepted.";
constexpr const char *sudoTimedOut = "Password authentication for sudo timed out.";

constexpr auto texts = std::to_array<FindingText>({
    // --- Connecting
    {HostIsNoName, "hostIsNoName", "What was given as the host is more than a host's name",
     "\"{host}\" is not the name of a host, which has no user, port, \"ssh://\", path or space in "
     "it "
     "or around it.",
     "Give the host alone, as in \"{suggestion}\"; the user and the port are given apart from it.",
     nameUnknown},
    {HostNameUnknown, "hostNameUnknown", "The host name is not known",
     "This computer finds no address for the name {host}. From here a mistyped name and one that "
     "is known only inside another network, such as behind a VPN, look alike.",
     "Compare the name with `getent hosts {hostWord}` on a computer that reaches the server; if it "
     "is right, join that network, or give the IP address in place of the name.",
     nameUnknown},
    {NameServerSilent, "nameServerSilent", "No name server answers",
     "The name {host} could not be looked up because no name server answered, or the one that did "
     "could not tell. Whether the name is right remains unknown.",
     "Check that this computer is connected to its network, and to the VPN if it needs one; `cat "
     "/etc/resolv.conf` names the name servers that were asked, and `getent hosts debian.org` "
     "shows "
     "whether they tell any name.",
     "Could not look up the host. Error: Temporary failure in name resolution (-3)."},
    {HostHasNoIPv4, "hostHasNoIPv4", "The host has no IPv4 address",
     "No IPv4 address is known for {host}, and this session tries no others.",
     "Leave out --classic, or set triesEveryAddress as SSHSessionOptions::recommended() does: then "
     "the host's IPv6 addresses are tried too.",
     "Could not look up the host. Error: Address family for hostname not supported (-9).\n"
     "Could not look up the host. Error: No address associated with hostname (-5)."},
    {HostHasNoSuchAddress, "hostHasNoSuchAddress",
     "The host has no address of the family that is asked for",
     "No {family} address is known for {host}, and this session was told to try no others.",
     "Leave out {familySwitch} (in a program: addressFamily), so that the host's other "
     "addresses are tried.",
     "Could not look up the host. Error: Address family for hostname not supported (-9).\n"
     "Could not look up the host. Error: No address associated with hostname (-5)."},
    {ConnectionRefused, "connectionRefused", "Connection refused",
     "The connection to port {port} of {host}{address} was refused at once. From here a server "
     "whose SSH service does not run, one that listens on another port, and a firewall or a ban "
     "(fail2ban) that refuses look alike.",
     "Check the port number, which is 22 unless somebody chose another; on the server `sudo ss "
     "-ltnp` shows on which ports programs listen (sshd, for SSH).",
     "Could not connect to the remote host. Error: Connection refused (111).\n"
     "Could not complete the handshake. Unable to send banner to remote host."},
    {ConnectionDropped, "connectionDropped", "The connection timed out",
     "Nobody answered at port {port} of {host}{address}{within}. From here a computer that is "
     "switched off or too busy, a wrong address and a firewall that drops what it does not let "
     "through look alike.",
     "Try `nc -vz {hostWord} {port}` on another computer, best in the server's own network: if "
     "that "
     "connects, a firewall or a missing VPN is in the way here; if not, the server has to be "
     "looked "
     "at.",
     "The connection timed out."},
    {HostUnreachable, "hostUnreachable", "The host cannot be reached",
     "There is no way from this computer to {host}{address}: {error}. From here a missing network "
     "or VPN, a computer that is switched off in the same network and a router or firewall that "
     "refuses look alike.",
     "Check this computer's network and VPN first; `ip route get {addressWord}` shows which way "
     "would be taken.",
     "Could not connect to the remote host. Error: No route to host (113).\n"
     "Could not connect to the remote host. Error: Network is unreachable (101)."},
    {ConnectionForbidden, "connectionForbidden", "This computer does not allow the connection",
     "This computer itself refused to connect to {host}{address}: {error}. A prohibiting route, a "
     "rule "
     "of its own firewall and a security policy do that, which look alike from here.",
     "Look at `ip route get {addressWord}` and then at `sudo nft list ruleset` on this computer, "
     "and "
     "have the way opened.",
     "Could not connect to the remote host. Error: Permission denied (13).\n"
     "Could not connect to the remote host. Error: Operation not permitted (1)."},
    {NoSocket, "noSocket", "This computer could not open a connection",
     "The system gave this program no socket for a connection: {error}.",
     "Close what this program has open, or end it and start it again; if the same comes back, "
     "`ulimit -n` shows how many files and connections it may have.",
     "Could not create a socket."},

    // --- The handshake
    {SpeaksHTTP, "speaksHTTP", "A web server answers on this port",
     "Port {port} of {host} belongs to a web server (HTTP), not to an SSH server. It said: "
     "\"{words}\".",
     "Give the port of the SSH server, which is 22 unless somebody chose another.", hungUp},
    {SpeaksTLS, "speaksTLS", "A TLS server answers on this port",
     "Port {port} of {host} answers with TLS, as web servers (HTTPS) and databases do, not with "
     "SSH.",
     "Give the port of the SSH server, which is 22 unless somebody chose another.", hungUp},
    {SpeaksOtherProtocol, "speaksOtherProtocol", "Something else than SSH answers on this port",
     "What answers on port {port} of {host} does not speak SSH{kind}. It said: \"{words}\".",
     "Give the port of the SSH server, which is 22 unless somebody chose another; that of a "
     "database or of another service goes elsewhere.",
     "Could not complete the handshake. The socket was disconnected.\n"
     "The server has sent 1 MB without saying that it speaks SSH. Another kind of server may be "
     "listening on this port."},
    {SpeaksSSH1, "speaksSSH1", "The server speaks only SSH 1",
     "{host} calls itself \"{words}\": it speaks version 1 of SSH, which is broken and which this "
     "program does not speak.",
     "Have version 2 enabled on the server: `Protocol 2` in /etc/ssh/sshd_config of an old "
     "OpenSSH, "
     "else by a newer SSH server or firmware.",
     handshakeFailed},
    {ServerHungUpAtOnce, "serverHungUpAtOnce", "The server hangs up at once",
     "{host} took the connection to port {port} and ended it without a word. From here a limit on "
     "connections, a ban of this computer's address (fail2ban, hosts.deny) and a service that is "
     "not SSH look alike.{usual}",
     "Try `ssh -v -p {port} {login}` from another computer; if that works, have this computer's "
     "address looked for in the bans on the server (`sudo fail2ban-client banned`).",
     "Could not complete the handshake. The socket was disconnected.\n"
     "Could not complete the handshake. Error -13.\n"
     "Could not complete the handshake. Error -43."},
    {ServerTooBusy, "serverTooBusy", "Exceeded MaxStartups: too many log-ins at once",
     "{host} has too many connections that have not logged in yet, and takes no more at the "
     "moment. The server said: \"{words}\".",
     "Try again in a minute; if it happens often, have MaxStartups raised in /etc/ssh/sshd_config "
     "on "
     "the server.",
     hungUp},
    {ServerPenalty, "serverPenalty",
     "Not allowed at this time: the server keeps us out for a while",
     "{host} refuses connections from this computer's address for some time, as it does after "
     "failed log-ins. The server said: \"{words}\".",
     "Wait some minutes without trying; whoever runs the server can exempt this address by "
     "PerSourcePenaltyExemptList in /etc/ssh/sshd_config.",
     hungUp},
    {ServerSilent, "serverSilent", "The server takes the connection and says nothing",
     "{host} took the connection to port {port} and has not said a word. From here an overloaded "
     "server, a service that waits to be spoken to (not SSH) and a firewall that only pretends to "
     "connect look alike.{usual}",
     "Try `ssh-keyscan -p {port} {hostWord}` on another computer: if that shows keys, something on "
     "the way from here holds the connection up; if not, check the port and the server.",
     "The server has not finished the handshake within 30 seconds.\n"
     "Could not complete the handshake. The socket timed out."},
    {NoCommonKeyExchange, "noCommonKeyExchange", "No key exchange method in common",
     "{host} and this program know no key exchange method in common. The server offers {theirs}; "
     "this program knows {ours}.",
     "Have one of those allowed on the server, by adding {choice} to KexAlgorithms in "
     "/etc/ssh/sshd_config, or its SSH server updated.",
     noKeyExchange},
    {NoCommonHostKey, "noCommonHostKey", "No host key type in common",
     "{host} has no host key of a type that this program knows. The server offers {theirs}; this "
     "program knows {ours}.",
     "Have a host key of another type made on the server, with `sudo ssh-keygen -A`, and allowed "
     "by adding {choice} to HostKeyAlgorithms in /etc/ssh/sshd_config.",
     noKeyExchange},
    {NoCommonCipher, "noCommonCipher", "No cipher in common",
     "{host} and this program know no cipher in common. The server offers {theirs}; this program "
     "knows {ours}.",
     "Have one of those allowed on the server, by adding {choice} to Ciphers in "
     "/etc/ssh/sshd_config, or its SSH server updated.",
     noKeyExchange},
    {NoCommonMAC, "noCommonMAC", "No message authentication code (MAC) in common",
     "{host} and this program know no message authentication code in common. The server offers "
     "{theirs}; this program knows {ours}.",
     "Have one of those allowed on the server, by adding {choice} to MACs in "
     "/etc/ssh/sshd_config, or its SSH server updated.",
     noKeyExchange},
    {HandshakeCutOff, "handshakeCutOff", "The connection ended in the middle of the handshake",
     "{host}{version} began the handshake, and then the connection ended.{said} From here a server "
     "that gave up, and a firewall or router that cut the connection, look alike.",
     "Have the server's log read at this time (`journalctl -u ssh -u sshd`), which gives the "
     "reason if it "
     "was the server.",
     hungUp},
    {HandshakeSlow, "handshakeSlow", "The handshake takes too long",
     "{host}{version} began the handshake and did not finish it{within}. From here a slow or "
     "overloaded server and a network that loses large packets, as some VPNs do, look alike.",
     "Try `ssh -v -p {port} {login}` from here: if that stops after \"SSH2_MSG_KEXINIT sent\" or "
     "\"expecting SSH2_MSG_KEX_ECDH_REPLY\", have the network's or VPN's packet size (MTU) "
     "lowered.",
     "The server has not finished the handshake within 30 seconds."},
    {HandshakeFailed, "handshakeFailed", "The handshake failed",
     "{host}{version} and this program did not agree on an encrypted connection.{said}{detail}",
     "Have the server's log read at this time (`journalctl -u ssh -u sshd`), which names what it "
     "missed.",
     "Could not complete the handshake. Encryption key exchange with the remote host failed.\n"
     "Could not complete the handshake. An invalid SSH protocol response was received on the "
     "socket."},

    // --- The host key
    {HostKeyUnknown, "hostKeyUnknown", "The server's key is not known yet, and was not accepted",
     "No key of {host}, port {port}, is on record in {file}, and the one that the server showed "
     "({type} {fingerprint}) was not accepted when the question came.",
     "Have `ssh-keygen -l -f {serverKeyFile}` run on the server; if it shows the same fingerprint, "
     "connect again and accept the key.",
     unknownKey},
    {HostKeyUnasked, "hostKeyUnasked",
     "The server's key is not accepted, and nobody could be asked",
     "No key of {host}, port {port}, is on record in {file}, and nobody was there to be asked "
     "whether to trust the one that the server showed ({type} {fingerprint}).",
     "Connect once from a terminal with `sshsession {classic}-p {port} {login} true`, and accept "
     "the "
     "key if `ssh-keygen -l -f {serverKeyFile}` on the server shows the same fingerprint.",
     unknownKey},
    {HostKeyChanged, "hostKeyChanged", "The server's key has changed",
     "{host}, port {port}, showed another key ({type} {fingerprint}) than the one on "
     "record{entry}. "
     "From here a server that was set up anew, another computer under this name and somebody who "
     "listens in on the connection look alike.",
     "Ask whoever runs the server for its fingerprint by another way, and only if it is this one "
     "remove the old key with `ssh-keygen -R {entryWord} -f {fileWord}`.",
     changedKey},
    {HostKeyOtherType, "hostKeyOtherType", "The key on record is of another type",
     "{host}, port {port}, showed a key of another type ({type} {fingerprint}) than the one on "
     "record{entry}. The two cannot be compared, so the record neither confirms this key nor "
     "speaks against it.",
     "Have `ssh-keygen -l -f {serverKeyFile}` run on the server; if it shows the same fingerprint, "
     "connect again and accept the key.",
     changedKey},
    {HostKeyOtherPort, "hostKeyOtherPort", "The same key is on record under another port",
     "The key that {host} showed at port {port} ({type} {fingerprint}) is on record for another "
     "port: line {line} of {file} names {name}. It is the same key, and most likely the same "
     "server.",
     "Connect again from a terminal and accept the key if this server is meant to be found at port "
     "{port}.",
     unknownKey},
    {HostKeyRevoked, "hostKeyRevoked", "The server's key is marked as revoked",
     "The key that {host} showed ({type} {fingerprint}) is marked as revoked{entry}: whoever wrote "
     "that line no longer trusts it, wherever it appears.",
     "Do not connect; ask whoever runs the server for its new key, and why the old one was "
     "revoked.",
     "The server's host key (SHA256:...) is marked as revoked in ~/.ssh/known_hosts."},
    {KnownHostsUnreadable, "knownHostsUnreadable", "The file of known hosts cannot be read",
     "{file} cannot be read: {problem}. So no server in it counts as known, this one included.",
     "{readStep}",
     "Could not check for known_hosts because libssh2_knownhost_readfile failed.\n"
     "Could not read ~/.ssh/known_hosts."},
    {KnownHostsBadLine, "knownHostsBadLine", "A line of the file of known hosts is damaged",
     "Line {line} of {file} {damage}", "{lineStep}",
     "Could not check for known_hosts because libssh2_knownhost_readfile failed."},
    {KnownHostsUnwritten, "knownHostsUnwritten", "The accepted key could not be recorded",
     "The accepted key of {host} could not be written to {file}{why}, so the question will come "
     "again at the next connection.",
     "{writeStep}", notWritten},
    {SSHDirectoryMissing, "sshDirectoryMissing", "There is no directory ~/.ssh",
     "The directory {directory} does not exist, so no server's key can be on record, and none is "
     "recorded.",
     "Make it with `mkdir -m 700 {directoryWord}`.", notWritten},

    // --- Logging in
    {MethodsUntold, "methodsUntold", "The server does not say how to log in",
     "{host}{version} did not say in which ways {user} may log in.{said} From here a server that "
     "refuses this user or this computer at once and one that is in trouble look alike.",
     "Have the server's log read at this time (`journalctl -u ssh -u sshd`, or /var/log/auth.log), "
     "which "
     "gives the reason.",
     "SSH could not authenticate because it could not get a list of the available "
     "authentication methods."},
    {KeepAliveRefused, "keepAliveRefused", "The server hangs up at a keepalive before the log-in",
     "{host}{version} ended the connection before {user} could log in. This session sends a "
     "keepalive before the log-in, which servers of some kinds (Dropbear, libssh, AsyncSSH, Go's "
     "library) answer by hanging up.",
     "Leave out --classic, or set watchesConnection as SSHSessionOptions::recommended() does: then "
     "keepalives begin after the log-in.",
     "SSH could not authenticate because it could not get a list of the available "
     "authentication methods."},
    {NoUsableMethod, "noUsableMethod", "The server offers no way to log in that can be used",
     "{host} {ways}{offered}.", "{giveStep}", cannotLogIn},
    {PasswordRefused, "passwordRefused", "The password is refused",
     "The server refused the password for {user}{besides}. From here {alike} look alike.",
     "Try the same user and password with `ssh {keyWord}-p {port} {login}`; if that fails too, "
     "have "
     "whoever runs the server look into its log (`journalctl -u ssh -u sshd`, or "
     "/var/log/auth.log), "
     "where sshd writes the reason.",
     "SSH could not authenticate using the ssh user password. (-18)\n"
     "SSH could not authenticate using keyboard-interactive. Authentication failed."},
    {PasswordMissing, "passwordMissing", "The server wants a password, and none was given",
     "{host} lets {user} log in by a password, and none was given.{asked}",
     "Give the password of {user} (`sshsession --password-from prompt` asks for it), or a key file "
     "that the server knows.",
     "No password was given.\n"
     "SSH could not authenticate using the ssh user password. (-18)"},
    {PasswordEmpty, "passwordEmpty", "The password that was given is empty",
     "The password that was given for {user} is empty, and the server did not accept it.",
     "Give the password again; where it comes from a file or a store, check that it holds one.",
     "SSH could not authenticate using the ssh user password. (-18)"},
    {PasswordExpired, "passwordExpired", "The password has expired",
     "The server knows the password of {user} as expired, and wants a new one before it lets the "
     "user in.",
     "Log in once from a terminal with `ssh -p {port} {login}`, which asks for the new password.",
     "SSH could not authenticate using the ssh user password. (-18)"},
    {PasswordNotOffered, "passwordNotOffered", "The server does not take passwords",
     "A password was given, but {host} lets {user} log in only by {methods}, so it was not asked "
     "for.",
     "Use a key: bring the content of your public key file (`ls ~/.ssh/*.pub`) to "
     "~{user}/.ssh/authorized_keys on the server, or have `PasswordAuthentication yes` set in its "
     "/etc/ssh/sshd_config.",
     cannotLogIn},
    {AnswersRefused, "answersRefused", "The answers to the server's questions are refused",
     "The server did not accept the answers to its questions for {user}.{said} From here a wrong "
     "or "
     "outdated code, an unknown user name and a locked account look alike.",
     "Try again with a fresh code; if it is refused too, compare the clock of the device that "
     "makes "
     "the codes with the server's.",
     "SSH could not authenticate using keyboard-interactive. Authentication failed."},
    {AnswersMissing, "answersMissing", "The server asks a question, and nobody answers it",
     "{host} asks questions at the log-in ({questions}), and got no answer: there was nobody to "
     "ask, "
     "or the question was dismissed.",
     "Run it where the questions can be shown and answered; for a program that runs alone, have a "
     "key "
     "allowed on the server that needs no such answer.",
     "SSH could not authenticate using keyboard-interactive."},
    {QuestionsNotAsked, "questionsNotAsked", "The server asks questions that nobody is shown",
     "{host} asks questions at the log-in (keyboard-interactive), and this session answers a "
     "single "
     "question with the password and several with nothing, without showing them to anybody.",
     "Leave out --classic, or set asksServersQuestions as SSHSessionOptions::recommended() does: "
     "then the user is asked.",
     "SSH could not authenticate using keyboard-interactive. Authentication failed."},
    {KeyRefused, "keyRefused", "The key is refused: Permission denied (publickey)",
     "The server does not accept {keys} for {user}.{untried} From here a missing line in "
     "~{user}/.ssh/authorized_keys, wrong permissions of that file or its directories, {barred} "
     "and a "
     "key type that the server does not allow look alike.",
     "{bring}; if it is there already, check on the server that ~{user} and ~{user}/.ssh are "
     "writable "
     "to {user} alone, and read `journalctl -u ssh -u sshd`.",
     "Failed to authenticate by public key exchange:\n"
     "Trying to authenticate with key files [[(null)]] and [[~/.ssh/id_ed25519]] and no "
     "password...\nFailed."},
    {KeyMissing, "keyMissing", "The key file does not exist", "There is no key file {key}.",
     "Choose the file again: `ls -l {directoryWord}` lists what is there; or make a new key with "
     "`ssh-keygen -t ed25519 -f {path}`.",
     "The user-specified key file [[~/.ssh/id_ed25519]] does not exist."},
    {KeyUnreadable, "keyUnreadable", "The key file cannot be read",
     "The key file {key} cannot be used: {remark}", "{openStep}",
     "Failed. The key file is damaged, or of a form that cannot be read. (-16)\n"
     "Leaving out key file [[~/.ssh/id_ed25519]]. Permission denied."},
    {KeyExposed, "keyExposed", "The permissions of the key file are too open",
     "Other users of this computer have rights to the key file {key} (mode {mode}), so it is not "
     "used.",
     "Make it yours alone with `chmod 600 {path}`.",
     "Others have rights to it (mode 0644). A private key must be its owner's alone (mode 0600)."},
    {KeyIsPublic, "keyIsPublic", "The key file holds the public key",
     "{key} holds a public key. Logging in needs the private one.",
     "Choose the private key: {privateHint}.", "It is a public key; the private one is needed."},
    {KeyIsPuTTY, "keyIsPuTTY", "The key file is in PuTTY's format (.ppk)",
     "{key} is a key in PuTTY's own format, which cannot be read here.",
     "Convert it with `puttygen {path} -O private-openssh -o {convertedPath}` and choose the new "
     "file.",
     "It holds no private key, or one of a form that is not known."},
    {KeyIsNoKey, "keyIsNoKey", "The key file holds no key",
     "{key} holds no private key of a form that is known (OpenSSH, PEM or PKCS#8).",
     "Choose another file; `ssh-keygen -y -f {path}` shows the public key of one that is a private "
     "key.",
     "It holds no private key, or one of a form that is not known."},
    {KeyOnToken, "keyOnToken", "The key is on a hardware token (sk-)",
     "The secret part of the key {key} is on a hardware token, which is used through an agent "
     "only.",
     "Hand it to the agent with `{startAgent}ssh-add {path}`, and connect again.",
     "A hardware token holds this key, which only an agent can use."},
    {KeyCipherUnknown, "keyCipherUnknown", "The key file is encrypted with an unknown cipher",
     "The key file {key} is encrypted in a way that cannot be read here{cipher}.",
     "Encrypt it anew with `ssh-keygen -p -Z aes256-ctr -f {path}`, or hand it to the agent with "
     "`{startAgent}ssh-add {path}`.",
     "It is encrypted with chacha20-poly1305@openssh.com, which cannot be read."},
    {KeyEncrypted, "keyEncrypted", "The key file is encrypted, and no pass phrase was given",
     "The key file {key} is encrypted, and its pass phrase was not given.",
     "Hand it to the agent with `{startAgent}ssh-add {path}`, which asks for the pass phrase once, "
     "and connect "
     "again.",
     "No password was given. Failing.\n"
     "Failed. Key unverified.\n"
     "Failed. (-16)"},
    {PassphraseWrong, "passphraseWrong", "The pass phrase does not open the key file",
     "The pass phrase that was given does not open the key file {key}.",
     "Try the pass phrase with `ssh-keygen -y -f {path}`, which shows the public key when it is "
     "right; a forgotten one cannot be recovered, only another key be made.",
     "Failed. The password does not open the key file."},
    {PublicFileMissing, "publicFileMissing", "The public half of the key is missing",
     "The key {key} was not tried, because this session tries a key of ~/.ssh only with its public "
     "file beside it, and {key}.pub does not exist.",
     "Make it with `ssh-keygen -y -f {path} > {path}.pub`.",
     "The standard key file [[~/.ssh/id_rsa.pub]] does not exist."},
    {PublicFileForeign, "publicFileForeign", "The .pub file belongs to another key",
     "{key}.pub is the public half of another key than {key}, so what the server is told does not "
     "fit what is signed.",
     "Make it anew with `ssh-keygen -y -f {path} > {path}.pub`.", "Failed. Key unverified."},
    {SignatureRefused, "signatureRefused", "The server knows the key and refuses its signature",
     "The server knows {keys}, and did not let {user} in by the signature made with it. From here "
     "a "
     "server that wants a second factor besides{rsaKind} and a public key file or certificate of "
     "another key look alike.",
     "Try `ssh -v -i {path} -p {port} {login}`: \"partial success\" in what it tells means that "
     "the "
     "server wants a second factor; if it says nothing of that, compare `ssh-keygen -y -f {path}` "
     "with {path}.pub.",
     "Failed. Key unverified."},
    {KeyNotTried, "keyNotTried", "A key in ~/.ssh was not tried",
     "The key {key} is there and was not tried: by itself this session tries no key files but "
     "{tried} in ~/.ssh.",
     "Give it as the key file (`sshsession -i {path}`){otherwise}.",
     "The standard key file [[~/.ssh/id_rsa]] does not exist."},
    {AgentDead, "agentDead", "The SSH agent does not answer",
     "The SSH agent that SSH_AUTH_SOCK names ({socket}) could not be asked for keys: {problem}.",
     "Start a new one with `eval \"$(ssh-agent)\"` and `ssh-add`, and start this program from the "
     "same shell; or give a key file.",
     "The SSH agent did not tell its identities. (-42)\n"
     "An error occurred in libssh2_agent_connect. (-42)"},
    {AgentEmpty, "agentEmpty", "The SSH agent holds no keys",
     "The SSH agent answers, and holds no key.",
     "Hand it one with `ssh-add {path}`; `ssh-add -l` then lists it.",
     "SSH could not authenticate using ssh-agent."},
    {AgentDidNotSign, "agentDidNotSign", "The SSH agent did not sign",
     "The server knows {keys}, but the SSH agent did not sign with it. From here an agent that is "
     "locked, one that asks for a confirmation nobody gave, and a hardware token that is not "
     "plugged in or was not touched look alike.",
     "Confirm, touch or plug in what the agent waits for and connect again; `ssh-add -T "
     "{agentPublicFile}` tries the key without a server.",
     "Failed. The agent did not sign."},
    {TooManyKeys, "tooManyKeys", "Too many authentication failures",
     "The server hung up after {count} were refused, before anything else could be tried: a server "
     "takes a number of attempts only (six, unless MaxAuthTries in sshd_config says otherwise)."
     "{said}",
     "{fewerGiven}ake keys that this server does not know out of the agent (`ssh-add -l` lists "
     "them, `ssh-add -d FILE` removes one), or give the right one as the key file.",
     "Failed. The connection has ended.\n"
     "The agent holds 3 more identities, which were left out because a server hangs up after a "
     "number of attempts."},
    {KeysNotOffered, "keysNotOffered", "The server does not take keys",
     "A key file was given, but {host} lets {user} log in only by {methods}, so it was not asked "
     "for.",
     "{insteadOfKey}ave `PubkeyAuthentication yes` set in /etc/ssh/sshd_config on the server.",
     cannotLogIn},
    {MoreFactorsWanted, "moreFactorsWanted", "The server wants a second factor",
     "The server accepted {accepted} for {user} as one factor of several, and wants {wanted} as "
     "well{limit}.",
     "{moreStep}",
     "Authenticated by public key exchange as one factor. The server wants more: "
     "keyboard-interactive"},
    {LogInHungUp, "logInHungUp", "The server hangs up during the log-in",
     "{ended} before {user} was logged in.{said}{alike}", "{endedStep}",
     "Failed. The connection has ended.\n"
     "SSH could not authenticate using the ssh user password. (-13)"},
    {LogInSlow, "logInSlow", "The log-in takes too long",
     "The log-in at {host} did not finish{within}. From here a server that waits for another one "
     "(such as a directory of users or a slow name server) and a network that has stopped look "
     "alike.",
     "Try again once; if it takes as long with `ssh -v -p {port} {login}`, have the server's log "
     "read at this time (`journalctl -u ssh -u sshd`).",
     "The log-in has not finished within 60 seconds."},

    // --- Commands
    {SessionRefused, "sessionRefused", "The server lets the user in and refuses sessions",
     "{host} let {user} log in, and then opened no session for a command.{said} From here a limit "
     "on "
     "sessions (MaxSessions), an account for tunnels or file transfers alone and a server that is "
     "out of memory or processes look alike.",
     "Try `ssh -p {port} {login} true`; if that fails too, have MaxSessions and the `Match` blocks "
     "for {user} looked at in /etc/ssh/sshd_config on the server.",
     "An error occurred in libssh2_channel_open_session."},
    {CommandRefused, "commandRefused", "The server runs no commands for this user",
     "{host} let {user} log in, and refused to run a command.{said} Accounts for file transfers or "
     "tunnels alone, and devices with a menu of their own, do that.",
     "Try `ssh -p {port} {login} true`; if that fails too, ask whoever runs the server for an "
     "account that may run commands.",
     "An error occurred in libssh2_channel_exec. (-22)"},
    {CommandTooLong, "commandTooLong", "The command is too long",
     "The command is longer than what {longerThan}.",
     "Hand the long part over as the command's input, as in `sshsession --stdin FILE -p {port} "
     "{login} sh`.",
     "An error occurred in libssh2_channel_exec. (-34)"},
    {InputUnreadable, "inputUnreadable", "The command's input cannot be read",
     "What the command should read on its standard input cannot be read on this computer: {why}. "
     "The command may have run on what came before.",
     "Look at what standard input was taken from: a file that can be read, or the output of "
     "another program. A directory, or a stream that is closed, is neither.",
     "The command's input could not be read. Error: Is a directory (21)."},
    {CommandNotFound, "commandNotFound", "Command not found (exit status 127)",
     "The server's shell found no such command{status}.{said} Commands that come over SSH often "
     "run "
     "with a shorter PATH than those of a terminal.",
     "Give the command with its whole path, which `command -v NAME` shows in a terminal on the "
     "server, or have it installed there.",
     noFixedTexts},
    {CommandNotExecutable, "commandNotExecutable", "The command cannot be run (exit status 126)",
     "The server's shell found the command and could not run it (exit status 126).{said}",
     "Look at the file on the server with `ls -l`: `chmod +x FILE` mends one that is a program; a "
     "directory, a file of another system or one on a disk mounted with noexec cannot be run.",
     noFixedTexts},
    {CommandKilled, "commandKilled", "The command was ended by a signal",
     "The command was ended on the server by the signal {signal}{meaning}.", "{killedStep}",
     noFixedTexts},
    {ShellNotAvailable, "shellNotAvailable", "This account is currently not available",
     "{user} may log in at {host}, but the account's shell runs no commands.{said}",
     "Use another account, or have a shell set for this one on the server: `sudo chsh -s /bin/sh "
     "{userWord}`.",
     noFixedTexts},
    {CommandSlow, "commandSlow", "The command takes too long",
     "The command did not end{within}, and was given up. It may still run on the server.{output}",
     "See whether it still runs with `ssh -p {port} {login} ps -u {remoteUserWord} -o "
     "pid,etime,args`, "
     "and "
     "allow it more time if it needs it (--timeout, commandTimeout).",
     "The command has not ended within 60 seconds. It may still be running on the server."},
    {CommandSilent, "commandSilent", "The command says nothing for too long",
     "The command neither sent nor took anything{within}, and was given up. It may still run on "
     "the "
     "server.{output}",
     "See whether it still runs with `ssh -p {port} {login} ps -u {remoteUserWord} -o "
     "pid,etime,args`, "
     "and "
     "allow it a longer silence if it needs it (silenceTimeout).",
     "The command has neither sent nor taken anything for 60 seconds. It may still be running on "
     "the server."},
    {CommandMayWaitForInput, "commandMayWaitForInput", "The command may be waiting for input",
     "No input was given to the command. If it reads its input, as one that asks a question does, "
     "it "
     "waits for as long as the connection lasts.",
     "Run it with `< /dev/null` behind it: if it ends then, give it the input or the option with "
     "which it asks nothing.",
     "The command has not ended within 60 seconds. It may still be running on the server."},
    {SudoPasswordWrong, "sudoPasswordWrong", "sudo does not accept the password",
     "sudo on {host} did not accept the password that was given for it.{said} Unless the server's "
     "sudoers say otherwise (targetpw, rootpw), it wants the password of {user}, not that of root.",
     "Try the password with `ssh -t -p {port} {login} sudo -k true`.", sudoRefused},
    {SudoNotAllowed, "sudoNotAllowed", "The user may not use sudo for this",
     "sudo on {host} does not allow {user} to run this command.{said}",
     "Have the rights of {user} looked at on the server with `sudo -l -U {userWord}`, and added "
     "with "
     "`sudo visudo` or by the group sudo (or wheel).",
     sudoRefused},
    {SudoMissing, "sudoMissing", "There is no sudo on the server",
     "The command was to run as root, and {host} has no sudo{where}.{said}",
     "Have sudo installed there, or log in as root and run the command without an administrator's "
     "password.",
     sudoTimedOut},
    {SudoNeedsTerminal, "sudoNeedsTerminal", "sudo wants a terminal",
     "sudo on {host} runs commands of {user} from a terminal only, and there is none here.{said}",
     "{terminalStep}", sudoTimedOut},
    {SudoHiddenByShell, "sudoHiddenByShell", "What the shell prints hides sudo's answer",
     "The shell of {user} on {host} prints something as it starts (\"{words}\"), behind which this "
     "session does not find sudo's answer. The command may have run.",
     "Leave out --classic, or set followsSudo as SSHSessionOptions::recommended() does.",
     sudoTimedOut},
    {SudoSilent, "sudoSilent", "sudo does not answer",
     "sudo on {host} neither asked for the password nor ran the command in time.{said} From here a "
     "sudo that waits for something else (such as a name server or a second factor), a time limit "
     "that is too short and a shell that does not start it look alike.",
     "Try it with `ssh -t -p {port} {login} sudo -k true`, which shows what it waits for.",
     sudoTimedOut},
    {SudoRefused, "sudoRefused", "sudo refuses", "sudo on {host} did not run the command.{said}",
     "Try it with `ssh -t -p {port} {login} sudo -k true`, which shows the same words or another "
     "question.",
     sudoRefused},

    // --- At any time
    {ServerDisconnected, "serverDisconnected", "The server ended the connection with a message",
     "{host} ended the connection (reason {code}).{said}",
     "Have the server's log read at this time (`journalctl -u ssh -u sshd`), which tells more than "
     "it says "
     "to others.",
     noFixedTexts},
    {ConnectionLost, "connectionLost", "The connection was lost",
     "The connection to {host} ended without a word{during}. From here a server that was "
     "restarted, "
     "one that ended this session, and a network or VPN that went away look alike.",
     "Connect again; if it happens again at the same point, have the server's log read at that "
     "time "
     "(`journalctl -u ssh -u sshd`).",
     "The socket was disconnected.\n"
     "Dravella lost the connection to the SSH server ada@db.example.com."},
    {ConnectionReset, "connectionReset", "Connection reset by peer",
     "The connection to {host} was cut off{during} (\"Connection reset by peer\"). From here a "
     "server "
     "process that ended at once and a firewall or router that forgot the connection look alike.",
     "Connect again; if it happens after some idle minutes each time, have the firewall's limit "
     "for "
     "idle connections raised.",
     "Socket error. Error: Connection reset by peer (104)."},
    {ServerUnresponsive, "serverUnresponsive", "The server has stopped answering",
     "{host} no longer answers, so the connection was given up{during}. From here a server that "
     "stands still, one that was switched off and a network that went away look alike.",
     "Check that this computer's network is there, and then that the server answers: `nc -vz "
     "{hostWord} {port}`.",
     "The server has left three keepalives unanswered.\n"
     "The socket timed out."},
    {ServerMisbehaved, "serverMisbehaved", "The server sends what no SSH server sends",
     "{host}{version} sent what no honest SSH server sends, so the connection was given "
     "up.{detail}",
     "Make sure that this is the server you mean, and report the version of its SSH server to its "
     "makers.",
     "The server kept sending what nobody asked for, and was given up after 64 MB.\n"
     "The server asked for the password again and again, and was given up after 100 times."},
    {NotConnected, "notConnected", "The session is not connected",
     "A command was to run, and the session was not connected: it was never started, was stopped, "
     "or its connection has ended.",
     "Connect again (`start`) before the next command.", "The session is not connected."},
    {AlreadyStarting, "alreadyStarting", "The session is being started already",
     "The session was to start, and another start of it was still under way.",
     "Wait for the first `start` to answer, or make a session of its own for each connection.",
     "The session is being started already."},
    {Cancelled, "cancelled", "It was cancelled", "It was cancelled on this side{during}.",
     "Run it again when it is wanted after all; a command may still run on the server.",
     "The session was cancelled while it was connecting.\n"
     "The command was cancelled. It may still be running on the server."},
    {Stopped, "stopped", "The session was stopped", "The session was stopped on this side{during}.",
     "Connect again when it is wanted after all.",
     "The session was stopped while it was connecting."},
    {Unexplained, "unexplained", "None of these",
     "It failed, and nothing that is known here explains why.{detail}",
     "Run `sshsession --doctor` with the same options: it examines every step and prints a report "
     "that can be passed on.",
     noFixedTexts},
});

static_assert(texts.size() == static_cast<std::size_t>(Unexplained) + 1);

} // namespace

std::span<const FindingText> findingTexts() noexcept {
    return texts;
}

} // namespace SSHEngine
