// The steps of an examination, each of which tells one line or more. They take for granted what the
// doctor's table says that they need.
#pragma once

namespace SSHEngine {

class Examination;

// Doctor/LocalSteps.cpp: on this computer
void examineKeyFiles(Examination &examination);
void examineAgent(Examination &examination);
void examineKnownHosts(Examination &examination);
// Doctor/NetworkSteps.cpp: the way to the server
void examineLookUp(Examination &examination);
void examineConnect(Examination &examination);
// Doctor/HelloSteps.cpp: what it says in the clear
void examineFirstWords(Examination &examination);
void examineAlgorithms(Examination &examination);
// Doctor/HostKeySteps.cpp: after the handshake
void examineHostKey(Examination &examination);
void examineKeepAlive(Examination &examination);
// Doctor/MethodSteps.cpp: how it lets users in
void examineMethods(Examination &examination);
void examineKeys(Examination &examination);
// Doctor/LogInSteps.cpp: as the user
void examineLogIn(Examination &examination);
void examineShell(Examination &examination);
void examineSudo(Examination &examination);

} // namespace SSHEngine
