// The whole public interface of Corestone.
#pragma once

#include "Alloc.h"
#include "BinReader.h"
#include "BuildVersion.h"
#include "Exception.h"
#include "KivApi.h"
#include "PString.h"
#include "String.h"
#include "SyncObject.h"
#include "Time.h"
#include "UnicodeString.h"
