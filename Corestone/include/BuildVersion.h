// Build identification: the build system replaces the placeholders with the team's real values.
#pragma once

#include "KivApi.h"

namespace Kiv
{
class KIV_API BuildVersion
{
public:
    static float GetKivBuildVersion();
    static const char * GetKivBuildVersionString();
    static const char * GetKivBuildString();
    static const char * GetKivBuildChangeNumString();
};
} // namespace Kiv
