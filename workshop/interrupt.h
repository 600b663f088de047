// The interrupt key as the end of a running form.
#pragma once

// While one lives, SIGINT ends the run of the calling thread as EXIT would, MAPCAR and loops that
// do not end included.
class interrupt_watch {
public:
    interrupt_watch();
    ~interrupt_watch();
    interrupt_watch(const interrupt_watch &) = delete;
    interrupt_watch &operator=(const interrupt_watch &) = delete;
    bool was_interrupted() const;
};

// Outside of a run SIGINT is noted and does nothing else. Once in a process.
void note_interrupts();
// Whether there was one since the last question.
bool take_interrupt();
