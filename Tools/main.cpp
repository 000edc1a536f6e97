#include "Program.h"

#include <string>
#include <vector>

int main(int count, char **arguments) {
    return runProgram(std::vector<std::string>(arguments + 1, arguments + count));
}
