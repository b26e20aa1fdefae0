// The whole public interface of Corestone.
#pragma once

#include "Alloc.h"
#include "BuildVersion.h"
#include "Exception.h"
#include "KivApi.h"
#include "SyncObject.h"
#include "Time.h"
