// Any bytes as the choices of an image made from scratch. What the verifier accepts is linked and
// run on its own and by MAPCAR, which decompiles it too. At its end it tells how many images there
// were and how many of them ran.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "bytecode/verify.h"
#include "kestrin/mapcar.h"
#include "kestrin/unit.h"
#include "native/hot.h"
#include "tests/kit/code.h"
#include "tests/kit/random_image.h"
#include "tests/kit/runner.h"
#include "vm/async_heap.h"
#include "vm/engine.h"

// -- The extension unit: steps -----------------------------------------------------------------

namespace {

void require(bool holds)
{
    if (!holds) abort();
}

constexpr int most_steps = 60, steps_of_a_store = 10;
int steps;

// As EXIT does.
void take_steps(int n)
{
    if ((steps -= n) > 0 || !rt_ctrl->rt_noterror) return;
    rt_ctrl->rt_noterror = 0;
    rt_ctrl->rt_error_code = UNWIND_EXIT;
}

void step(const ULO *, kestrin_data *ret_dat)
{
    if (!noterror()) return;
    take_steps(1);
    if (noterror()) answer<SLO>(ret_dat, steps);
}

void gate(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    SLO value = 0;
    ret_ival(dat_ptr, &value);
    take_steps(steps_of_a_store);
    if (noterror()) answer(ret_dat, value);
}

void mix(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    SLO integer = 0;
    DFL real = 0;
    ret_ival(dat_ptr, &integer);
    ret_fval(dat_ptr + 1, &real);
    ret_sval(dat_ptr + 2, &ret_dat->svalue);
    if (!noterror()) return;
    left(&ret_dat->svalue, ret_dat->svalue, real > 0 ? 9 : ULO(integer & 15));
    ret_dat->single = 1;
    ret_dat->type = 'S';
}

const UCH mixed[] = "IFS", integer[] = "I";

} // namespace

extern const INSTRUCTION_STRU INSTRUCTION_SET[] = {
    {"STEP", 0, 'I', nullptr, step}, {"GATE", 1, 'I', integer, gate}, {"MIX", 3, 'S', mixed, mix}};
extern const ULO INSTRUCTIONS = 3;
const CHR *VERSION_CKSTUDF___ = "";

void startup_callback() {}
void taskjob_end_callback(ULO) {}
void user_io_callback(SLO id, CHR **text)
{
    if (id % 2 == 0) free_string(text);
}

// -- The runs ----------------------------------------------------------------------------------

namespace {

constexpr ULO globals = 3;
ULO images, accepted;

void start()
{
    kit::start_passes();
    bind_isaext();
    const kit::code set = kit::program(
        "(defun twice (progn (defun inner (cat $1 $2)) (step) (inner $2 $1)))"
        "(defun none (time)) (defun pair (progn (arsetq p 1 $1) (arsetq p 2 $2) p)) nil");
    assign(&the_engine.global_udf_code, kit::bytes_of(set));
    kestrin_link(the_engine.global_udf_code);
    tree t;
    kestrin_check(&t, &t.root, "(PROGN NIL)", 0, "Main", &the_engine.func_lut);
    the_engine.mapcar_with_decompiler = 1;
    strings_tls->fault_hook = [] {}; // an index beyond all memory stores nothing
    atexit([] { fprintf(stderr, "images: %lu, accepted: %lu\n", images, accepted); });
}

// Every second image runs as native code wherever that can be.
void use_native_code(bool native)
{
    the_engine.native = native ? &native_at_once : nullptr;
    *rt_ctrl->counters = fresh_counters();
}

// The machine is as it was before the run.
void check_machine(const kestrin_data *top)
{
    require(rt_ctrl->rt_noterror == 1 && rt_ctrl->rt_frame == nullptr);
    require(rt_ctrl->frame_top == top);
    while (async_heap_blocks > 0) delete_block(async_heap_tree->link1);
}

void run_by_mapcar(std::string_view bytes)
{
    kit::code node = {reinterpret_cast<ULO>(func__dummy_s), bytes.size()};
    node.resize(2 + bytes.size() / sizeof(ULO) + 1);
    memcpy(&node[2], bytes.data(), bytes.size());
    const ULO operand = reinterpret_cast<ULO>(node.data());
    kestrin_data value = owning_slot;
    func__mapcar(&operand, &value);
    require(!value.single && value.array.mix[MAPCAR_SYNTAX_CODE].value.ival == 0);
    free_kst_data(&value);
}

void try_image(const kit::code &words)
{
    images++;
    if (!verify_bytecode(kit::bytes_of(words))) return;
    accepted++;
    const kestrin_data *top = rt_ctrl->frame_top;
    use_native_code(images % 2 == 0);
    steps = most_steps;
    kit::run_code(kit::bytes_of(words));
    check_machine(top);
    steps = most_steps;
    run_by_mapcar(kit::bytes_of(words));
    check_machine(top);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool started = (start(), true);
    require(started);
    const std::string_view choices(reinterpret_cast<const CHR *>(data), size);
    try_image(kit::random_image(choices, globals).words());
    return 0;
}

extern "C" [[gnu::visibility("default")]] const char *__asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}
