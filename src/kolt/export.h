#pragma once

/// Marks what libtessarin.so offers to the plug-in and to programs. All else is hidden.
#define TESSARIN_API __attribute__((visibility("default")))
