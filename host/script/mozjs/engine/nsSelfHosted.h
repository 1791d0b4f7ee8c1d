// The part of the script engine that is script itself.
#pragma once

#include <js/Initialization.h>

/// Once for a context, in the place of JS::InitSelfHostedCode: takes what has been parsed when the
/// host was built, which is a quarter of the start of a program. Another build of the engine than
/// that one parses it here. aParsed is called then, with what the next start could take.
bool NS_InitSelfHosted(JSContext* cx, JS::SelfHostedWriter aParsed = nullptr);
