// What crash reports say of script.
#pragma once

#include "js/TypeDecls.h"

/// From now on a crash report of this process has the script's stack. False without memory. The
/// context's thread.
bool NS_StartScriptCrash(JSContext* cx);
void NS_StopScriptCrash();
