// The whole public interface of Corestone.
#pragma once

#include "BinReader.h"
#include "BuildVersion.h"
#include "KivApi.h"
#include "PString.h"
#include "String.h"
#include "UnicodeString.h"
