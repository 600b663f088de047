// What MAPCAR keeps from call to call.
#pragma once

// Drops the calling thread's view of the known functions, which is made at the first call: the next
// one sees those that there are then. To be called ahead of a change of them, outside of a run.
void forget_functions_of_mapcar();
