// Where code runs: the facts about the module. This program is one processing unit with one task
// job and one thread; code written for a larger system asks here and behaves correctly in both. All
// of them can be called at any time from any thread, and none can fail.
#pragma once

#include "kestrin/types.h"

#pragma GCC visibility push(default) // the library shows the names of these headers alone

// Number of parallel processing units configured, 1 here.
ULO get_n_workunit();
// Number of the current unit, from 0 and below get_n_workunit(); 0 here.
ULO get_id_workunit();
// Number of parallel task jobs at most, 1 here.
ULO get_n_taskjob();
// Number of the current task job, from 0 and below get_n_taskjob(); 0 here.
ULO get_id_taskjob();

// 1 in the stand-alone compiler and runtime, as here.
UCH am_I_in_the_kestrin_module();
// 1 in the loader of a system of several processes; 0 here.
UCH am_I_in_the_QuarneLdr_module();
// 1 in the server of a system of several processes; 0 here.
UCH am_I_in_the_QuarneSrv_module();
// 1 in a processing unit of a system of several processes; 0 here.
UCH am_I_in_the_WORKUNIT_module();
// 1 if the engine itself runs several threads; 0 here.
UCH am_I_in_the_multithreaded_module();

#pragma GCC visibility pop
