// Saves 1, 2, 3, ... from a first number on in both profiles, and prints each number when it was saved, until
// it is killed.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sigweave/services/Profile.h"

int main(int, char** arguments) {
    for (int number = std::atoi(arguments[1]);; ++number) {
        const std::string text = std::to_string(number);
        SaveUserProfileInt("killed", text.c_str(), number);
        SaveMachineProfileString("killed", text.c_str(), text.c_str());
        std::printf("%d\n", number);
        std::fflush(stdout);
    }
}
