// Where code runs: the facts about the module. This program is one processing unit with one task
// job and one thread; code written for a larger system asks here and behaves correctly in both.
#pragma once

#include "kestrin/types.h"

// Parallel processing units configured, and the current one, from 0.
ULO get_n_workunit();
ULO get_id_workunit();
// Parallel task jobs at most, and the current one, from 0.
ULO get_n_taskjob();
ULO get_id_taskjob();

// 1 if true, else 0: the stand-alone compiler and runtime; the loader, the server and a processing
// unit of a system of several processes; an engine that runs several threads.
UCH am_I_in_the_kestrin_module();
UCH am_I_in_the_QuarneLdr_module();
UCH am_I_in_the_QuarneSrv_module();
UCH am_I_in_the_WORKUNIT_module();
UCH am_I_in_the_multithreaded_module();
