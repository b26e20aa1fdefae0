#include "Kiv.h"

#include <cstdio>

int main()
{
    std::printf("Corestone %s\n", Kiv::BuildVersion::GetKivBuildVersionString());
    return 0;
}
