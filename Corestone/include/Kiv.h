// The whole public interface of Corestone.
#pragma once

#include "Alloc.h"
#include "BuildVersion.h"
#include "Console.h"
#include "Eigen3.h"
#include "Exception.h"
#include "KivApi.h"
#include "MathUtil.h"
#include "Profile.h"
#include "Rand.h"
#include "Rect.h"
#include "SyncObject.h"
#include "Time.h"
#include "Vector3.h"
