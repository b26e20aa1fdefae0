#include "Tool.h"

#include <unistd.h>

bool Tool::StandardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}
