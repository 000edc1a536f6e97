// Findings as they are made: the words of the table, filled in.
#pragma once

#include <SSHSession/SSHFinding.h>

#include <map>
#include <string>
#include <vector>

namespace SSHEngine {

using FindingArguments = std::map<std::string, std::string>;

// What every finding may speak of; no file is looked at.
FindingArguments commonArguments(const SSHFacts &facts);

class FindingList {
  public:
    FindingList(const SSHFacts &seen, SSHErrorCause why)
        : facts(seen), cause(why), mCommon(commonArguments(seen)) {}

    const SSHFacts &facts;
    const SSHErrorCause cause;

    // At the end, unless it is there already, or there are enough. `arguments` go before the common
    // ones.
    void add(SSHFindingID id, const FindingArguments &arguments = {});

    bool isEmpty() const { return mFindings.empty(); }
    bool contains(SSHFindingID id) const;
    const std::vector<SSHFinding> &findings() const { return mFindings; }

  private:
    const FindingArguments mCommon;
    std::vector<SSHFinding> mFindings;
};

// The rules of each stage, which add what they find; those for what is left; and those for what is
// no failure.
void addConnectFindings(FindingList &list);
void addHandshakeFindings(FindingList &list);
void addHostKeyFindings(FindingList &list);
void addLogInFindings(FindingList &list);
void addCommandFindings(FindingList &list);
void addGeneralFindings(FindingList &list);
void addRecordFindings(FindingList &list);

} // namespace SSHEngine
