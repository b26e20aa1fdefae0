// The whole public interface of Corestone.
#pragma once

#include "BuildVersion.h"
#include "Console.h"
#include "Eigen3.h"
#include "KivApi.h"
#include "MathUtil.h"
#include "Profile.h"
#include "Rand.h"
#include "Rect.h"
#include "Vector3.h"
