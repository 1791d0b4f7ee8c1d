// Which build of the script engine runs.
#pragma once

/// From now on the engine marks what it writes for later starts with its own build, and does not
/// read what another one has written. False when the build can't be told: then nothing may be
/// given to it to read. Before the first context.
bool NS_MarkEngineBuild();
