// Where a thread runs.
#pragma once

/// The number of the processor that the calling thread runs on at this moment. Any thread.
int NS_CurrentProcessor();
