#include "Tool.h"

#include <cstdio>
#include <io.h>

bool Tool::StandardErrorIsTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}
