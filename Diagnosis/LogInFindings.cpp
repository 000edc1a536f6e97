// From an encrypted connection to a user who is logged in.
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"
#include "Diagnosis/KnownWords.h"

#include <fmt/format.h>

#include <algorithm>

namespace SSHEngine {

namespace {

using enum SSHFindingID;
using Result = SSHAttemptResult;

bool isOfKey(const SSHAttempt &attempt) {
    return attempt.method == "publickey";
}

bool isOneOf(const std::string &name, const std::vector<std::string> &names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What the rules below ask of the facts.
class LogIn {
  public:
    explicit LogIn(FindingList &list) : mList(list), mFacts(list.facts) {
        if (!mFacts.keyFilePath.empty())
            mGiven.push_back(mFacts.keyFilePath);
        const auto &further = mFacts.options.furtherKeyFiles;
        if (mFacts.options.triesKeysOfToday) // else nobody looks at them
            mGiven.insert(mGiven.end(), further.begin(), further.end());
    }

    void add();

  private:
    bool isLogIn() const;
    bool offers(const char *method) const {
        return mFacts.methods.empty() || isOneOf(method, mFacts.methods);
    }
    std::string givingWhatIsWanted() const;
    bool takesPasswords() const { return offers("password") || offers("keyboard-interactive"); }
    const SSHAttempt *first(const char *method, Result result) const;
    bool isGiven(const SSHAttempt &attempt) const {
        return !attempt.isFromAgent && isOneOf(attempt.key, mGiven);
    }
    const SSHKeyFileFacts *fileOf(const std::string &path) const;
    FindingArguments keyArguments(const SSHKeyFileFacts &file) const;
    FindingArguments keyArguments(const SSHAttempt &attempt) const;
    std::string bringing(const std::string &path, bool isFile) const;

    void addEarlyEnding();
    void addFactor();
    bool addGivenFiles();
    bool addGivenFile(const std::string &path);
    bool addFileState(const SSHKeyFileFacts &file);
    void addKeyAttempts(bool ofGivenKey);
    std::string untriedText() const;
    void addRefusedKeys(bool ofGivenKey);
    std::string askedText() const;
    bool mayHaveGoneOn() const;
    FindingArguments passwordArguments() const;
    bool isClassic() const { return !mFacts.options.asksServersQuestions; }
    void addPassword();
    void addQuestions(const SSHAttempt *answers);
    void addUntriedKeys();
    void addUntried(const SSHKeyFileFacts &file, const char *tried, const char *otherwise);
    void addKeysOfOtherNames();
    void addAgent();
    void addLateEnding();

    FindingList &mList;
    const SSHFacts &mFacts;
    std::vector<std::string> mGiven; // key files
};

bool LogIn::isLogIn() const {
    switch (mList.cause) {
        using enum SSHErrorCause;
    case MethodsUntold:
    case NoWayIn:
    case SSHErrorCause::PasswordMissing:
    case SSHErrorCause::PasswordRefused:
    case SSHErrorCause::PasswordExpired:
    case SSHErrorCause::AnswersMissing:
    case SSHErrorCause::AnswersRefused:
    case SSHErrorCause::KeyRefused:
    case SSHErrorCause::KeyMissing:
    case SSHErrorCause::KeyUnreadable:
    case SSHErrorCause::KeyEncrypted:
    case SSHErrorCause::SignatureRefused:
    case AgentFailed:
    case MoreWanted:
    case LogInRefused:
    case LogInTimedOut:
        return true;
    case Unknown:
    case ConnectionLost:
    case DisconnectedByServer:
    case ClosedEarly:
        return mFacts.stage == SSHSessionStage::Agent ||
               mFacts.stage == SSHSessionStage::Authenticate;
    default:
        return false;
    }
}

const SSHAttempt *LogIn::first(const char *method, Result result) const {
    const auto found =
        std::find_if(mFacts.attempts.begin(), mFacts.attempts.end(), [&](const SSHAttempt &each) {
            return each.method == method && each.result == result;
        });
    return found == mFacts.attempts.end() ? nullptr : &*found;
}

const SSHKeyFileFacts *LogIn::fileOf(const std::string &path) const {
    if (!mFacts.local)
        return nullptr;
    const auto &files = mFacts.local->keyFiles;
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const auto &each) { return each.path == path; });
    return found == files.end() ? nullptr : &*found;
}

// --- The keys

std::string directoryOf(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

std::string withoutExtension(const std::string &path, std::string_view extension) {
    return path.ends_with(extension) ? path.substr(0, path.size() - extension.size()) : path;
}

std::string LogIn::bringing(const std::string &path, bool isFile) const {
    const FindingArguments common = commonArguments(mFacts);
    const std::string file = shellWord(path);
    const std::string home = fmt::format("~{}/.ssh/authorized_keys", common.at("user"));
    const std::string target = fmt::format("-p {} {}", common.at("port"), common.at("login"));
    if (!isFile)
        return takesPasswords()
                   ? fmt::format("Bring the agent's keys to the server with `ssh-copy-id {}`",
                                 target)
                   : fmt::format("Have the key's line of `ssh-add -L` added to {} on the server",
                                 home);
    const SSHKeyFileFacts *const facts = fileOf(path);
    const std::string first =
        facts && facts->publicFile == SSHPublicFileState::Missing
            ? fmt::format("Make its public file with `ssh-keygen -y -f {0} > {0}.pub`, and then: ",
                          file)
            : "";
    return first + (takesPasswords()
                        ? fmt::format("Bring the key to the server with `ssh-copy-id -i {}.pub {}`",
                                      file, target)
                        : fmt::format("Have the line in {}.pub added to {} on the server",
                                      shown(path), home));
}

std::string openStep(const SSHKeyFileFacts &file) {
    const char *step =
        "Look whether `ssh-keygen -y -f {0}` shows its public key, as of a file that "
        "is in order; if not, restore it from a copy.";
    if (holds(file.detail, "denied"))
        step =
            "Look with `ls -l {0}` whose it is; `chmod 600 {0}` mends the mode of a file that is "
            "yours.";
    else if (holds(file.detail, "directory"))
        step = "Choose a key file in it: `ls -l {0}` shows what there is.";
    return fmt::format(fmt::runtime(step), shellWord(file.path));
}

FindingArguments LogIn::keyArguments(const SSHKeyFileFacts &file) const {
    const std::string privatePath = withoutExtension(file.path, ".pub");
    return {{"key", shown(file.path)},
            {"keys", "the key " + describedKey(file.path, file.type, file.fingerprint)},
            {"path", shellWord(file.path)},
            {"directoryWord", shellWord(directoryOf(file.path))},
            {"mode", fmt::format("{:04o}", file.mode)},
            {"remark", file.detail.empty() ? "no reason is known." : shown(file.detail)},
            {"openStep", openStep(file)},
            {"cipher", file.detail.empty() ? "" : ": " + shown(file.detail)},
            {"startAgent",
             mFacts.local && mFacts.local->agent.socket.empty() ? "eval \"$(ssh-agent)\" && " : ""},
            {"convertedPath", shellWord(withoutExtension(file.path, ".ppk") + "_openssh")},
            {"agentPublicFile", shellWord(privatePath + ".pub")},
            {"privateHint", privatePath == file.path
                                ? std::string("the file beside it without \".pub\", as a rule")
                                : "as a rule that is " + shown(privatePath)},
            {"bring", bringing(file.path, true)}};
}

FindingArguments LogIn::keyArguments(const SSHAttempt &attempt) const {
    SSHKeyFileFacts file;
    if (const SSHKeyFileFacts *const known = fileOf(attempt.key))
        file = *known;
    file.path = attempt.key;
    if (!attempt.remark.empty())
        file.detail = attempt.remark;
    FindingArguments arguments = keyArguments(file);
    arguments["keys"] = describedKey(attempt);
    const bool isRSA = attempt.keyType.starts_with("ssh-rsa") || file.type.starts_with("ssh-rsa");
    arguments["rsaKind"] = isRSA ? ", a server that takes no RSA signatures with SHA-1" : "";
    if (attempt.isFromAgent) {
        arguments["bring"] = bringing(attempt.key, false);
        arguments["agentPublicFile"] = "FILE.pub";
        arguments["path"] = "FILE.pub";
    }
    return arguments;
}

// What is wrong with a file whatever the server thinks of its key.
bool LogIn::addFileState(const SSHKeyFileFacts &file) {
    const auto found = [&]() -> std::optional<SSHFindingID> {
        switch (file.state) {
        case SSHKeyFileState::Missing:
            return KeyMissing;
        case SSHKeyFileState::Unreadable:
            return KeyUnreadable;
        case SSHKeyFileState::NoKey:
            return KeyIsNoKey;
        case SSHKeyFileState::PublicKey:
            return KeyIsPublic;
        case SSHKeyFileState::PuTTY:
            return KeyIsPuTTY;
        case SSHKeyFileState::OnToken:
            return KeyOnToken;
        case SSHKeyFileState::UnknownCipher:
            return KeyCipherUnknown;
        case SSHKeyFileState::Exposed:
            return mFacts.options.triesKeysOfToday ? std::optional(KeyExposed) : std::nullopt;
        case SSHKeyFileState::Encrypted:
        case SSHKeyFileState::Plain:
            break;
        }
        return std::nullopt;
    }();
    if (found)
        mList.add(*found, keyArguments(file));
    return found.has_value();
}

// Whether none of the keys that the user has given is of use as it is.
bool LogIn::addGivenFiles() {
    if (mGiven.empty())
        return false;
    if (!offers("publickey")) {
        mList.add(KeysNotOffered,
                  {{"insteadOfKey", takesPasswords() ? "Log in with a password, or h" : "H"}});
        return true;
    }
    const auto useful = std::count_if(mGiven.begin(), mGiven.end(),
                                      [&](const std::string &path) { return !addGivenFile(path); });
    return useful == 0;
}

bool LogIn::addGivenFile(const std::string &path) {
    const SSHKeyFileFacts *const file = fileOf(path);
    const auto isUnopened = [&](const SSHAttempt &each) {
        return !each.isFromAgent && each.key == path &&
               (each.result == Result::SignatureRefused || each.result == Result::Unusable ||
                each.result == Result::NotGiven);
    };
    if (file && addFileState(*file))
        return true;
    // By default an encrypted file fails as a key with a bad signature does.
    if (file && file->state == SSHKeyFileState::Encrypted &&
        std::any_of(mFacts.attempts.begin(), mFacts.attempts.end(), isUnopened)) {
        mList.add(KeyEncrypted, keyArguments(*file));
        return true;
    }
    return false;
}

// Servers count attempts, so that a session leaves some out.
std::string LogIn::untriedText() const {
    const auto tried =
        std::count_if(mFacts.attempts.begin(), mFacts.attempts.end(), [](const SSHAttempt &each) {
            return each.isFromAgent && each.result != Result::Unusable;
        });
    const std::size_t held = mFacts.local ? mFacts.local->agent.identities.size() : 0;
    const std::size_t most = mFacts.options.maximumAgentKeys;
    if (most == 0 || static_cast<std::size_t>(tried) < most || held <= most)
        return "";
    return fmt::format(
        " Of the agent's {} keys {} were not tried, since servers hang up after a "
        "number of attempts: the right one may be among them, and is tried first when "
        "its file is given.",
        held, held - static_cast<std::size_t>(tried));
}

void LogIn::addRefusedKeys(bool ofGivenKey) {
    std::vector<std::string> keys;
    const SSHAttempt *one = nullptr;
    for (const SSHAttempt &each : mFacts.attempts) {
        if (!isOfKey(each) || each.result != Result::Refused || isGiven(each) != ofGivenKey)
            continue;
        one = one ? one : &each;
        keys.push_back(describedKey(each));
    }
    if (!one)
        return;
    FindingArguments arguments = keyArguments(*one);
    arguments["keys"] = enumeration(keys, "or");
    arguments["barred"] = mFacts.user == "root"
                              ? "a server that does not let root log in (PermitRootLogin)"
                              : "another user's name, an account that is barred or locked";
    arguments["untried"] = ofGivenKey ? "" : untriedText();
    mList.add(KeyRefused, arguments);
}

void LogIn::addKeyAttempts(bool ofGivenKey) {
    for (const SSHAttempt &each : mFacts.attempts) {
        if (!isOfKey(each) || isGiven(each) != ofGivenKey)
            continue;
        const SSHKeyFileFacts *const file = each.isFromAgent ? nullptr : fileOf(each.key);
        const FindingArguments arguments = keyArguments(each);
        if (each.result == Result::SignatureRefused && file &&
            file->publicFile == SSHPublicFileState::Foreign)
            mList.add(PublicFileForeign, arguments);
        else if (each.result == Result::SignatureRefused)
            mList.add(SignatureRefused, arguments);
        else if (each.result == Result::NotSigned)
            mList.add(AgentDidNotSign, arguments);
        else if (each.result == Result::WrongPassphrase)
            mList.add(PassphraseWrong, arguments);
        else if (each.result == Result::NotGiven)
            mList.add(KeyEncrypted, arguments);
        else if (each.result == Result::Missing && ofGivenKey)
            mList.add(KeyMissing, arguments);
        else if (each.result == Result::Unusable && !each.isFromAgent &&
                 (!file || !addFileState(*file)))
            mList.add(KeyUnreadable, arguments);
    }
    addRefusedKeys(ofGivenKey);
}

// --- What lies there unused

void LogIn::addUntriedKeys() {
    if (!mFacts.local || !offers("publickey") || mFacts.options.triesKeysOfToday)
        return;
    for (const SSHKeyFileFacts &file : mFacts.local->keyFiles) {
        const bool isUsable = file.state == SSHKeyFileState::Plain ||
                              file.state == SSHKeyFileState::Encrypted ||
                              file.state == SSHKeyFileState::Exposed;
        const bool isStandard = file.path.ends_with("/id_rsa") || file.path.ends_with("/id_dsa");
        const bool isOfToday =
            file.path.ends_with("/id_ed25519") || file.path.ends_with("/id_ecdsa");
        if (file.isGiven || file.isTried || file.isInAgent || !isUsable)
            continue;
        if (isStandard)
            mList.add(PublicFileMissing, keyArguments(file));
        else if (isOfToday)
            addUntried(file, "id_dsa and id_rsa",
                       ", or leave out --classic (triesKeysOfToday, as "
                       "SSHSessionOptions::recommended() sets it)");
    }
}

void LogIn::addUntried(const SSHKeyFileFacts &file, const char *tried, const char *otherwise) {
    FindingArguments arguments = keyArguments(file);
    arguments["tried"] = tried;
    arguments["otherwise"] = otherwise;
    mList.add(KeyNotTried, arguments);
}

// Whoever has given a key or a password meant to be let in by that.
void LogIn::addKeysOfOtherNames() {
    if (!mFacts.local || !offers("publickey") || mFacts.hasPassword || !mGiven.empty())
        return;
    for (const SSHKeyFileFacts &file : mFacts.local->keyFiles)
        if (!file.isInAgent && file.path.find("/id_") == std::string::npos &&
            file.state != SSHKeyFileState::Missing)
            addUntried(file,
                       mFacts.options.triesKeysOfToday ? "id_ed25519, id_ecdsa and id_rsa"
                                                       : "id_dsa and id_rsa",
                       "");
}

void LogIn::addAgent() {
    const bool hasKeyAttempt =
        std::any_of(mFacts.attempts.begin(), mFacts.attempts.end(), [](const SSHAttempt &each) {
            return isOfKey(each) && each.result != Result::Missing &&
                   !(each.isFromAgent && each.result == Result::Unusable);
        });
    if (!mFacts.local || !offers("publickey") || hasKeyAttempt)
        return;
    const SSHAgentFacts &agent = mFacts.local->agent;
    const bool isWanted = !mFacts.hasPassword || mList.cause == SSHErrorCause::AgentFailed;
    if (agent.socket.empty() || !isWanted)
        return;
    if (!agent.problem.empty())
        mList.add(AgentDead, {{"socket", shown(agent.socket)}, {"problem", shown(agent.problem)}});
    else if (agent.identities.empty())
        mList.add(AgentEmpty,
                  {{"path", mGiven.empty() ? "~/.ssh/id_ed25519" : shellWord(mGiven.front())}});
}

// --- Passwords and questions

std::string questionsOf(const SSHAttempt *attempt) {
    std::vector<std::string> quoted;
    for (const std::string &question : attempt ? attempt->questions : std::vector<std::string>())
        quoted.push_back(fmt::format("\"{}\"", shown(question)));
    return enumeration(quoted, "and");
}

std::string LogIn::askedText() const {
    const SSHAttempt *const unanswered = first("keyboard-interactive", Result::NotGiven);
    return unanswered && !unanswered->questions.empty()
               ? fmt::format(" It asked {}, and nobody answered.", questionsOf(unanswered))
               : "";
}

// After a factor that was taken the server may offer more than at first.
bool LogIn::mayHaveGoneOn() const {
    return std::any_of(mFacts.attempts.begin(), mFacts.attempts.end(), [](const SSHAttempt &each) {
        return each.result == Result::SignatureRefused || each.result == Result::AcceptedInPart;
    });
}

// Of a user whose key was taken the server knows the name.
FindingArguments LogIn::passwordArguments() const {
    const bool isKnown =
        std::any_of(mFacts.attempts.begin(), mFacts.attempts.end(),
                    [](const SSHAttempt &each) { return each.result == Result::AcceptedInPart; });
    if (isKnown)
        return {
            {"besides", ", after it had accepted the key as the first of several factors"},
            {"alike", "a wrong, an expired and a locked password"},
            {"keyWord", mGiven.empty() ? "" : fmt::format("-i {} ", shellWord(mGiven.front()))}};
    const char *const root = "a wrong password and a server that lets root log in by no password "
                             "(PermitRootLogin in sshd_config, which is so by default)";
    return {
        {"besides", ""},
        {"alike", mFacts.user == "root"
                      ? root
                      : "a wrong password, an unknown user name and a barred or locked account"},
        {"keyWord", ""}};
}

void LogIn::addPassword() {
    const SSHAttempt *const password = first("password", Result::Refused);
    const SSHAttempt *answers = first("keyboard-interactive", Result::Refused);
    if (answers && answers->questions.empty()) // nothing was answered
        answers = nullptr;
    if (first("password", Result::Expired) || mList.cause == SSHErrorCause::PasswordExpired)
        mList.add(PasswordExpired);
    else if (mFacts.hasPassword && !takesPasswords() && !password && !answers && !mayHaveGoneOn())
        mList.add(PasswordNotOffered);
    else if (mFacts.isPasswordEmpty && (password || answers))
        mList.add(PasswordEmpty);
    else if (mList.cause != SSHErrorCause::AnswersRefused &&
             (password || mList.cause == SSHErrorCause::PasswordRefused ||
              (answers && isClassic())))
        mList.add(PasswordRefused, passwordArguments());
    else
        addQuestions(answers);
    const bool isAskedOnly = answers && !password && !isOneOf("password", mFacts.methods);
    if (isClassic() && (isAskedOnly || first("keyboard-interactive", Result::NotGiven)))
        mList.add(QuestionsNotAsked);
}

// `answers` is the attempt whose answers were refused, if one was.
void LogIn::addQuestions(const SSHAttempt *answers) {
    const bool isMissing = mList.cause == SSHErrorCause::NoWayIn && !mFacts.hasPassword &&
                           isOneOf("password", mFacts.methods);
    if (mList.cause == SSHErrorCause::AnswersMissing)
        mList.add(isClassic() ? QuestionsNotAsked : AnswersMissing,
                  {{"questions", questionsOf(first("keyboard-interactive", Result::NotGiven))}});
    else if (answers || mList.cause == SSHErrorCause::AnswersRefused)
        mList.add(isClassic() ? QuestionsNotAsked : AnswersRefused,
                  {{"said", answers ? quotedAs("It said", answers->remark) : ""}});
    else if (first("password", Result::NotGiven) || isMissing ||
             mList.cause == SSHErrorCause::PasswordMissing)
        mList.add(PasswordMissing, {{"asked", askedText()}});
}

// --- Endings

// Whether the server is, or may be, one of those that a keepalive offends.
bool mayTakeOffence(const SSHFacts &facts) {
    const std::string &version = facts.server.version;
    const bool hasAnswered =
        std::any_of(facts.attempts.begin(), facts.attempts.end(), [](const SSHAttempt &each) {
            return each.result == Result::Refused || each.result == Result::AcceptedInPart ||
                   each.result == Result::Expired || each.result == Result::SignatureRefused;
        });
    if (facts.options.watchesConnection || hasAnswered)
        return false;
    return !wordsIn(version, Words::refusingKeepAlives).empty() ||
           (facts.server.hasHungUp && facts.methods.empty() && !holds(version, "OpenSSH"));
}

void LogIn::addEarlyEnding() {
    const bool isUntold = mList.cause == SSHErrorCause::MethodsUntold;
    const bool hasEnded = isUntold || mFacts.server.hasHungUp ||
                          mList.cause == SSHErrorCause::ConnectionLost ||
                          mList.cause == SSHErrorCause::DisconnectedByServer;
    if (hasEnded && mayTakeOffence(mFacts))
        mList.add(KeepAliveRefused);
    if (isUntold)
        mList.add(MethodsUntold);
}

// A server that says goodbye was not lost, and its own words are worth more than a list.
FindingArguments endingArguments(const SSHFacts &facts) {
    const FindingArguments common = commonArguments(facts);
    const bool speaks = facts.disconnect && !facts.disconnect->message.empty();
    const std::string alike =
        fmt::format(" From here a limit on attempts or on the time for them, an account that has "
                    "expired or may "
                    "not log in now{} a ban of this computer's address{} look alike.",
                    facts.disconnect ? " and" : ",", facts.disconnect ? "" : " and a lost network");
    return {{"ended", facts.disconnect
                          ? fmt::format("{} ended the connection itself", common.at("host"))
                          : fmt::format("The connection to {} ended", common.at("host"))},
            {"alike", speaks ? "" : alike},
            {"endedStep", speaks ? "Do as it says, or ask whoever runs the server what it means."
                                 : "Have the server's log read at this time (`journalctl -u ssh -u "
                                   "sshd`, or /var/log/auth.log), which gives the reason if it was "
                                   "the server."}};
}

void LogIn::addLateEnding() {
    const auto refused =
        std::count_if(mFacts.attempts.begin(), mFacts.attempts.end(), [](const SSHAttempt &each) {
            return isOfKey(each) && each.result == Result::Refused;
        });
    const bool hasEnded =
        std::any_of(mFacts.attempts.begin(), mFacts.attempts.end(),
                    [](const SSHAttempt &each) { return each.result == Result::Ended; }) ||
        mFacts.disconnect || mFacts.server.hasHungUp;
    const std::string words = mFacts.disconnect ? mFacts.disconnect->message : "";
    const bool isCounted = holds(words, Words::tooManyFailures);
    const bool isOfKeys = refused > 1 && !first("password", Result::Refused) &&
                          !first("keyboard-interactive", Result::Refused);
    if (isOfKeys && (isCounted || hasEnded))
        mList.add(TooManyKeys,
                  {{"count", fmt::format("{} keys", refused)},
                   {"fewerGiven",
                    mGiven.size() > 1 ? "Give fewer key files, the right one first. Or t" : "T"}});
    else if (hasEnded && mList.isEmpty())
        mList.add(LogInHungUp, endingArguments(mFacts));
}

void LogIn::addFactor() {
    const auto taken =
        std::find_if(mFacts.attempts.begin(), mFacts.attempts.end(),
                     [](const SSHAttempt &each) { return each.result == Result::AcceptedInPart; });
    if (taken == mFacts.attempts.end() && mList.cause != SSHErrorCause::MoreWanted)
        return;
    const bool isKnown = taken != mFacts.attempts.end();
    std::vector<std::string> wanted;
    if (isKnown)
        for (const std::string &method : taken->wanted)
            wanted.push_back(shown(method));
    const bool isClassic = !mFacts.options.triesFurtherFactors;
    mList.add(
        MoreFactorsWanted,
        {{"accepted", !isKnown          ? "one method"
                      : isOfKey(*taken) ? describedKey(*taken)
                                        : shown("the method " + taken->method)},
         {"wanted", wanted.empty() ? "another one" : enumeration(wanted, "or")},
         {"limit", isClassic ? ", and this session gives one factor only" : ""},
         {"moreStep", isClassic ? "Leave out --classic, or set triesFurtherFactors as "
                                  "SSHSessionOptions::recommended() does: then the others follow."
                                : "Give what the other factor needs as well: the password, the key "
                                  "file, or the answer to the server's question."}});
}

std::string LogIn::givingWhatIsWanted() const {
    if (mFacts.methods.empty())
        return "Have AuthenticationMethods and the `Match` blocks in /etc/ssh/sshd_config on the "
               "server looked at for this user.";
    if (offers("publickey"))
        return takesPasswords() ? "Give a password, or the file of a key that the server knows."
                                : "Give the file of a key that the server knows (`ls ~/.ssh` shows "
                                  "which there are), or have passwords allowed in "
                                  "/etc/ssh/sshd_config on the server.";
    return takesPasswords() ? "Give the password."
                            : "Have a way allowed on the server that works here, by "
                              "`PubkeyAuthentication yes` or `PasswordAuthentication yes` in "
                              "/etc/ssh/sshd_config.";
}

// What the user has given comes first.
void LogIn::add() {
    if (!mFacts.error || !mList.isEmpty() || !isLogIn())
        return;
    addEarlyEnding();
    if (!mList.isEmpty())
        return;
    if (mList.cause == SSHErrorCause::LogInTimedOut) {
        const auto limit = std::chrono::duration<double>(mFacts.options.logInTimeout).count();
        mList.add(LogInSlow, {{"within", limit > 0 ? fmt::format(" within {} s", limit) : ""}});
        return;
    }
    // Where another factor was tried and refused, that comes first.
    if (mList.cause == SSHErrorCause::MoreWanted)
        addFactor();
    addLateEnding();
    if (!addGivenFiles())
        addKeyAttempts(true);
    addPassword();
    addUntriedKeys();
    addKeyAttempts(false);
    addAgent();
    if (!mList.contains(PasswordRefused)) // which tells of the factor, too
        addFactor();
    addKeysOfOtherNames();
    if (mList.cause == SSHErrorCause::NoWayIn && mList.isEmpty())
        mList.add(NoUsableMethod,
                  {{"ways", mFacts.methods.empty()
                                ? "offers no way at all to log in: its list of methods is empty"
                            : offers("publickey")
                                ? "takes keys, and there was none to offer; it lists its methods as"
                                : "takes only methods that this program does not know or has "
                                  "nothing for"},
                   {"offered", mFacts.methods.empty()
                                   ? ""
                                   : fmt::format(" ({})", commonArguments(mFacts).at("methods"))},
                   {"giveStep", givingWhatIsWanted()}});
}

} // namespace

void addLogInFindings(FindingList &list) {
    LogIn(list).add();
}

} // namespace SSHEngine
