#include "workshop/edit_library.h"

#include <dlfcn.h>

namespace {

edit_library library;

template <class F> bool find(void *handle, const char *name, F *function)
{
    *function = reinterpret_cast<F>(dlsym(handle, name));
    return *function != nullptr;
}

} // namespace

const edit_library *load_edit_library()
{
    void *handle = dlopen("libedit.so.2", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return nullptr;
    edit_library *l = &library;
    const bool is_whole =
        find(handle, "el_init", &l->el_init) && find(handle, "el_end", &l->el_end) &&
        find(handle, "el_set", &l->el_set) && find(handle, "el_get", &l->el_get) &&
        find(handle, "el_gets", &l->el_gets) && find(handle, "el_line", &l->el_line) &&
        find(handle, "el_source", &l->el_source) &&
        find(handle, "el_insertstr", &l->el_insertstr) && find(handle, "history", &l->history) &&
        find(handle, "history_init", &l->history_init) &&
        find(handle, "history_end", &l->history_end);
    return is_whole ? l : nullptr;
}
