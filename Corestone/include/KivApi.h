// The one export macro of the library: everything not marked KIV_API stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(CORESTONE_BUILD)
#define KIV_API __declspec(dllexport)
#else
#define KIV_API __declspec(dllimport)
#endif
#else
#define KIV_API __attribute__((visibility("default")))
#endif

#ifndef INFINITE
#define INFINITE 0xffffffff
#endif
