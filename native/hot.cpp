#include "native/hot.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <map>
#include <mutex>

#include "native/lower.h"
#include "native/pages.h"

namespace native {

namespace {

using way_in = native_maker::rest_of_loop; // every way into native code is called like this

// The code of a node. Without pages it has been looked at, and there will be none.
struct piece {
    std::unique_ptr<code_pages> pages;
    std::vector<std::unique_ptr<exit_path>> exits;
    fcall handler = nullptr; // that stood in the node before
    way_in resume = nullptr;
    std::vector<code_mark> marks;
    CHR answer = 0; // of a function: the type of what it answers, most likely
};

// All code of the process: by nodes, and the functions of numbers by images, without code where one
// is none. Their addresses stay.
struct registry {
    std::recursive_mutex lock;
    std::map<const ULO *, piece> nodes;
    std::map<const ULO *, direct_function> functions;
    std::map<const UCH *, const ULO *> watched; // the nodes of marked code, by where it begins
    std::atomic<bool> is_changing = false;
    std::atomic<bool> is_used = false;
};

registry &all()
{
    static registry *made = new registry; // code may run until the process ends
    return *made;
}

// While one lives, these lists are the calling thread's, to be changed.
class change {
public:
    change() : guard_(all().lock) { all().is_changing = true; }
    ~change() { all().is_changing = false; }

private:
    std::lock_guard<std::recursive_mutex> guard_;
};

void put_word(const ULO *node, const void *handler)
{
    __atomic_store_n(const_cast<ULO *>(node), std::bit_cast<ULO>(handler), __ATOMIC_RELEASE);
}

const UCH *place_in(const piece &p, ULO offset) { return p.pages->begin() + offset; }

// Makes the code of the node at `root` and puts it in the place of its handler. False if it can
// have none, or there is no memory for it.
bool make_code(region r, const ULO *root, piece *p)
{
    if (!read_region(&r, root) || !settle_types(&r)) return false;
    lowered made = lower(&r);
    p->pages = code_pages::make(made.code);
    if (p->pages == nullptr) return false;
    p->exits = std::move(made.exits);
    p->marks = std::move(made.marks);
    if (!p->marks.empty()) all().watched[p->pages->begin()] = root;
    for (const auto &path : p->exits) path->root = root;
    p->handler = linked_handler(root);
    p->answer = r[0].type.letter;
    p->resume = std::bit_cast<way_in>(place_in(*p, made.resume));
    if (r.self != nullptr) r.self->code = place_in(*p, made.direct);
    put_word(root, place_in(*p, made.handler));
    return true;
}

// The types of the arguments in a frame; nothing if one is no single number.
std::vector<CHR> number_types(const kestrin_data *frame, ULO count)
{
    std::vector<CHR> types;
    for (ULO i = 0; i < count; i++) {
        if (!frame[i].single || !holds_number(&frame[i])) return {};
        types.push_back(static_cast<CHR>(frame[i].type));
    }
    return types;
}

// Verified code of others may speak of more arguments than its frames have room for.
bool has_places(const ULO *image) { return image_arguments(image) <= image_slots(image); }

// A function without a frame, for arguments of these types; once for each image.
const direct_function *make_direct(const ULO *image, const std::vector<CHR> &types)
{
    const auto [place, is_new] = all().functions.try_emplace(image);
    direct_function *known = &place->second;
    if (!is_new) return known->code != nullptr && known->arguments == types ? known : nullptr;
    const ULO *root = image_main_node(image);
    const bool fit = types.size() <= std::size(temporaries);
    if (!fit || !has_places(image) || all().nodes.contains(root)) return nullptr;
    *known = {.image = image, .arguments = types, .result = OPEN};
    piece made;
    if (!make_code({.kind = shape::DIRECT, .image = image, .self = known}, root, &made))
        return nullptr;
    all().nodes[root] = std::move(made);
    return known;
}

// A loop, or the body of a function, with the running frame; once for each node.
way_in make_framed(shape kind, const ULO *image, const ULO *root)
{
    const auto [place, is_new] = all().nodes.try_emplace(root);
    if (is_new)
        make_code({.kind = kind, .image = image, .frame = rt_ctrl->rt_frame}, root, &place->second);
    return place->second.resume;
}

way_in make_loop(const ULO *node)
{
    const change mine;
    all().is_used = true;
    return make_framed(shape::LOOP, rt_ctrl->rt_function, node);
}

void make_function(const ULO *image)
{
    const change mine;
    all().is_used = true;
    const ULO arguments = image_arguments(image);
    if (!has_places(image)) return;
    const auto types = number_types(rt_ctrl->rt_frame, arguments);
    if (types.size() == arguments && make_direct(image, types) != nullptr) return;
    make_framed(shape::BODY, image, image_main_node(image));
}

// The words of before stand in the nodes again: the code's text may be read once more.
void forget(const void *from, const void *to)
{
    if (!all().is_used) return;
    const change mine;
    const auto *first = static_cast<const ULO *>(from), *last = static_cast<const ULO *>(to);
    auto &nodes = all().nodes;
    for (auto p = nodes.lower_bound(first); p != nodes.end() && p->first < last;) {
        if (p->second.handler != nullptr)
            put_word(p->first, reinterpret_cast<const void *>(p->second.handler));
        if (!p->second.marks.empty()) all().watched.erase(p->second.pages->begin());
        p = nodes.erase(p);
    }
    auto &functions = all().functions;
    functions.erase(functions.lower_bound(first), functions.lower_bound(last));
}

native_place find(const void *address)
{
    if (all().is_changing) return {};
    const UCH *at = static_cast<const UCH *>(address);
    auto code = all().watched.upper_bound(at);
    if (code == all().watched.begin()) return {};
    const piece &p = all().nodes.find((--code)->second)->second;
    const ULO offset = static_cast<ULO>(at - p.pages->begin());
    if (offset >= p.pages->size()) return {};
    const auto behind =
        std::upper_bound(p.marks.begin(), p.marks.end(), offset,
                         [](ULO wanted, const code_mark &m) { return wanted < m.offset; });
    return {behind[-1].node, behind[-1].depth};
}

} // namespace

fcall linked_handler(const ULO *node)
{
    const std::lock_guard guard(all().lock);
    const auto found = all().nodes.find(node);
    if (found != all().nodes.end() && found->second.handler != nullptr)
        return found->second.handler;
    return handler_of(node);
}

const direct_function *find_callee(const region &r, unsigned i)
{
    const ULO *image = node_at(r[i].node + 1);
    std::vector<CHR> types;
    for (unsigned k = i + 1; k < r[i].end; k = r[k].end) {
        if (!r[k].type.certain) return nullptr;
        types.push_back(r[k].type.letter);
    }
    if (types.size() != image_arguments(image)) return nullptr;
    if (r.self != nullptr && r.self->image == image)
        return r.self->arguments == types ? r.self : nullptr;
    return make_direct(image, types);
}

CHR answer_of(const ULO *image)
{
    const auto found = all().nodes.find(image_main_node(image));
    return found == all().nodes.end() ? CHR(0) : found->second.answer;
}

void stop_using(const ULO *node)
{
    const std::lock_guard guard(all().lock);
    const auto found = all().nodes.find(node);
    if (found == all().nodes.end()) return;
    put_word(node, reinterpret_cast<const void *>(found->second.handler));
    found->second.resume = nullptr;
}

} // namespace native

const native_maker native_hot = {
    50, 2, native::make_loop, native::make_function, native::forget, native::find};
const native_maker native_at_once = {
    1, 1, native::make_loop, native::make_function, native::forget, native::find};
