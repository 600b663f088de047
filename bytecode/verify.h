// The verifier: whether compiled bytecode that did not come from this run's compiler may be linked.
#pragma once

#include <string_view>

// True if `code`, a whole function image, is sound: linking and running it then stays inside the
// code and inside its frames, whatever it computes. Images and nodes lie where their place in the
// format is and belong to one owner each; letters, rows and slots have a handler; operands are as
// many as declared; numbers of variables and UDFs are in scope; strings and debug text end inside.
// A function assigns none of its formal arguments, which may be lent by its caller; the root may.
// Bytes behind the code, frames larger than their use and more arguments than slots pass. All that
// the compiler makes passes. Calls of global UDFs are held against the linked global function set;
// without one none passes. Never reads outside `code`, which needs no alignment; costs time in
// proportion to it.
bool verify_bytecode(std::string_view code);
