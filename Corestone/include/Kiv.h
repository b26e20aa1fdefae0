// The whole public interface of Corestone.
#pragma once

#include "BuildVersion.h"
#include "KivApi.h"
#include "SyncObject.h"
