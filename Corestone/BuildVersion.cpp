#include "BuildVersion.h"

// A release build passes the real values on the compiler's command line.
#ifndef CORESTONE_BUILD_VERSION
#define CORESTONE_BUILD_VERSION 1234.5
#define CORESTONE_BUILD_VERSION_STRING "1234.5"
#define CORESTONE_BUILD_STRING "RRRRR.RR"
#define CORESTONE_BUILD_CHANGE "QQQQQ"
#endif

namespace Kiv
{
float BuildVersion::GetKivBuildVersion()
{
    return static_cast<float>(CORESTONE_BUILD_VERSION);
}
const char * BuildVersion::GetKivBuildVersionString()
{
    return CORESTONE_BUILD_VERSION_STRING;
}
const char * BuildVersion::GetKivBuildString()
{
    return CORESTONE_BUILD_STRING;
}
const char * BuildVersion::GetKivBuildChangeNumString()
{
    return CORESTONE_BUILD_CHANGE;
}
} // namespace Kiv
