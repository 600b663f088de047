// A unit with three instructions, in the two ways in which a unit can bring them along:
//
//     (I*2_ x)           twice x, cast to an integer
//     (I*2 x)            the same, with a fast handler for what is proved an integer
//     (FUSION_CMP x y)   -1, 0 or 1 as x is less, equal or greater, for values of any type
//
// I*2_ is a row of INSTRUCTION_SET: one handler, which takes whatever comes. The other two are rows
// of the main table, added ahead of the start: they have a handler for each case that the compiler
// can tell apart. (I*2_ A) in a program becomes I*2_@J where A is proved an integer, and I*2@J and
// FUSION_CMP@I, @F, @S, @Z select the handlers of slots 1 to 4. fusion_typed.kst shows the
// suffixes.

#include <kestrin/ckst_udf.h>

#include <cstdlib>
#include <string>

namespace {

// -- Values ------------------------------------------------------------------------------------

// Makes the lent record a single integer. What string or array memory it holds may stay.
void answer(kestrin_data *ret_dat, SLO value)
{
    ret_dat->single = 1;
    ret_dat->type = 'I';
    ret_dat->value.ival = value;
}

// Unsigned arithmetic wraps; signed overflow would be undefined.
SLO twice(SLO value) { return static_cast<SLO>(static_cast<ULO>(value) * 2); }

template <class T> SLO order(T a, T b) { return a < b ? -1 : a > b ? 1 : 0; }

// An operand as it comes, of any type. The slot says who owns the answer: an owning slot always
// gets a value of its own, a borrowing slot may get an alias of a variable, which is not ours to
// free.
struct operand {
    kestrin_data record;

    operand(const ULO *dat_ptr, const kestrin_data &slot) : record(slot)
    {
        eval_operand(dat_ptr, &record);
    }
    ~operand()
    {
        if (record.disable_ptr) free_kst_data(&record);
    }
    operand(const operand &) = delete;
    operand &operator=(const operand &) = delete;

    DFL number() const
    {
        switch (record.type) {
        case 'I': return static_cast<DFL>(record.value.ival);
        case 'F': return record.value.fval;
        case 'S': return record.svalue == nullptr ? 0.0 : atof(record.svalue);
        default: return 0.0;
        }
    }
};

// Values of one type compare as that type, others as floats.
SLO order_of(const operand &a, const operand &b)
{
    if (a.record.type != b.record.type) return order(a.number(), b.number());
    switch (a.record.type) {
    case 'I': return order(a.record.value.ival, b.record.value.ival);
    case 'S': return cmp_s(a.record.svalue, b.record.svalue);
    default: return order(a.number(), b.number());
    }
}

// -- Handlers ----------------------------------------------------------------------------------

// The casting fetch: any operand, by the language's table of casts.
void i_times_2(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    SLO value = 0;
    ret_dat->disable_ptr = 1;
    ret_ival(dat_ptr, &value);
    if (noterror()) answer(ret_dat, twice(value));
}

// The typed direct call: the operand is proved an integer, so it is evaluated right where the
// result goes and read without a look at its type. `single` and `type` are set all the same, since
// the operand may have been an array of integers, whose member 0 this is.
void i_times_2_j(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, ret_dat);
    if (noterror()) answer(ret_dat, twice(ret_dat->value.ival));
}

// Of the first operand a copy is wanted: the second may assign the variable that an alias would
// stand for, as in (fusion_cmp a (setq a "b")). The second is used at once, so an alias will do.
void fusion_cmp(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    const operand first(dat_ptr, owning_slot);
    const operand second(dat_ptr + 1, borrowing_slot);
    if (noterror()) answer(ret_dat, order_of(first, second));
}

// The typed ones: both operands run in the lent record, one after the other, and the first one's
// value is taken from it in between. Errors are asked for once, at the end.
void fusion_cmp_i(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, ret_dat);
    const SLO first = ret_dat->value.ival;
    eval_operand(dat_ptr + 1, ret_dat);
    if (noterror()) answer(ret_dat, order(first, ret_dat->value.ival));
}

void fusion_cmp_f(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, ret_dat);
    const DFL first = ret_dat->value.fval;
    eval_operand(dat_ptr + 1, ret_dat);
    if (noterror()) answer(ret_dat, order(first, ret_dat->value.fval));
}

// The string is taken out of the record, which would use its memory again for the second one.
void fusion_cmp_s(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, ret_dat);
    CHR *first = ret_dat->svalue;
    ret_dat->svalue = nullptr;
    eval_operand(dat_ptr + 1, ret_dat);
    if (noterror()) answer(ret_dat, cmp_s(first, ret_dat->svalue));
    free_string(&first);
}

// Nil equals nil; the operands are evaluated for what else they do.
void fusion_cmp_z(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, ret_dat);
    eval_operand(dat_ptr + 1, ret_dat);
    if (noterror()) answer(ret_dat, 0);
}

// -- Rows of the main table --------------------------------------------------------------------

std::string address(fcall handler) { return " " + std::to_string(reinterpret_cast<ULO>(handler)); }

// New rows go behind the others, whose numbers stand in bytecode. A slot of 0 is empty.
std::string new_rows()
{
    return "(I*2 1 I \"I\"" + address(i_times_2) + address(i_times_2_j) + " 0 0 0)" +
           "(FUSION_CMP 2 I \"EE\"" + address(fusion_cmp) + address(fusion_cmp_i) +
           address(fusion_cmp_f) + address(fusion_cmp_s) + address(fusion_cmp_z) + ")";
}

const UCH one_integer[] = "I";

} // namespace

const INSTRUCTION_STRU INSTRUCTION_SET[] = {{"I*2_", 1, 'I', one_integer, i_times_2}};
const ULO INSTRUCTIONS = 1;
const CHR *VERSION_CKSTUDF___ = "Fusion example v.1.0.0.";

void startup_callback() {}
void taskjob_end_callback(ULO) {}
void user_io_callback(SLO, CHR **) {}

int main(int argc, char **argv)
{
    // This thread uses the string library ahead of _Main_.
    setup_quarne_thread_safe_functionality_for_local_thread();
    CHR *table = nullptr, *rows = nullptr;
    _internal_ISA_COPs_get(&table);
    cat(&table, get_std_buff(&rows, new_rows().c_str()));
    _internal_ISA_COPs_set(table);
    free_string(&table);
    free_string(&rows);
    return _Main_(argc, argv);
}
