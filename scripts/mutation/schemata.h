// Compiled into every file of the mutated tree, in front of it. Each place that scripts/mutate
// changes is a call of one of these functions, with the number of its first mutant: they do what
// the source says, unless the environment's HOPLAR_MUTANT is the number of one of their mutants. So
// one build has all mutants. At compile time nothing is mutated.
//
// With HOPLAR_MUTANTS_SEEN, a file, each mutant's byte there tells what a run has shown of it: bit
// 0, that its place was reached; bit 1, that its value there was another one than the original's. A
// mutant whose value never differs changes nothing.
#ifndef HOPLAR_MUTATION_SCHEMATA_H
#define HOPLAR_MUTATION_SCHEMATA_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <type_traits>

namespace mutants {

inline int chosen = 0;
inline unsigned char *seen = nullptr;
inline bool is_set_up = false;

// System calls are made directly, because the tests count and fail the library's functions. It
// comes before all constructors of the programs.
__attribute__((constructor(101))) static inline void set_up() noexcept {
    if (is_set_up)
        return;
    is_set_up = true;
    if (const char *const number = std::getenv("HOPLAR_MUTANT"))
        chosen = std::atoi(number);
    const char *const path = std::getenv("HOPLAR_MUTANTS_SEEN");
    if (path == nullptr)
        return;
    const long file = ::syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    const long size = file < 0 ? 0 : ::syscall(SYS_lseek, file, 0, SEEK_END);
    if (size <= 0)
        std::abort();
    const long map =
        ::syscall(SYS_mmap, nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::syscall(SYS_close, file);
    if (map == -1)
        std::abort();
    seen = reinterpret_cast<unsigned char *>(map);
}

constexpr bool is(int number, bool differs = true) noexcept {
    if (__builtin_is_constant_evaluated())
        return false;
    const unsigned char bits = differs ? 3 : 1;
    if (seen != nullptr && (__atomic_load_n(&seen[number], __ATOMIC_RELAXED) & bits) != bits)
        __atomic_fetch_or(&seen[number], bits, __ATOMIC_RELAXED);
    return chosen == number;
}

template <class T>
constexpr T pick(int number, T original, T mutant) noexcept {
    return is(number, original != mutant) ? mutant : original;
}

template <class T>
constexpr T number(int number, T original, T mutant) noexcept {
    return pick(number, original, mutant);
}

template <class T>
constexpr T zero(int number, T original) noexcept {
    return pick(number, original, T{});
}

constexpr bool flip(int number, bool value) noexcept {
    return pick(number, value, !value);
}

constexpr bool always(int number, bool value) noexcept {
    return pick(number, value, true);
}

constexpr bool never(int number, bool value) noexcept {
    return pick(number, value, false);
}

constexpr bool condition(int number, bool value) noexcept {
    return always(number, never(number + 1, value));
}

// `FUNCTION(number, a, b)` is `a OP b`, and mutants `a OTHER b`. Both may be computed.
#define MUTANTS_COMPARISON(function, op, other, opposite)                                          \
    template <class A, class B>                                                                    \
    constexpr bool function(int number, const A &a, const B &b) {                                  \
        if (__builtin_is_constant_evaluated())                                                     \
            return a op b;                                                                         \
        return pick(number, pick(number + 1, bool(a op b), bool(a opposite b)), bool(a other b));  \
    }
#define MUTANTS_EQUALITY(function, op, other)                                                      \
    template <class A, class B>                                                                    \
    constexpr bool function(int number, const A &a, const B &b) {                                  \
        if (__builtin_is_constant_evaluated())                                                     \
            return a op b;                                                                         \
        return flip(number, bool(a op b));                                                         \
    }
#define MUTANTS_OPERATION(function, op, other)                                                     \
    template <class A, class B>                                                                    \
    constexpr auto function(int number, const A &a, const B &b) {                                  \
        if (__builtin_is_constant_evaluated())                                                     \
            return a op b;                                                                         \
        return pick<decltype(a op b)>(number, a op b, a other b);                                  \
    }
#define MUTANTS_ASSIGNMENT(function, op, other)                                                    \
    template <class A, class B>                                                                    \
    constexpr A &function(int number, A &a, const B &b) {                                          \
        return is(number) ? a other b : a op b;                                                    \
    }

MUTANTS_COMPARISON(less, <, <=, >=)
MUTANTS_COMPARISON(less_equal, <=, <, >)
MUTANTS_COMPARISON(greater, >, >=, <=)
MUTANTS_COMPARISON(greater_equal, >=, >, <)
MUTANTS_EQUALITY(equal, ==, !=)
MUTANTS_EQUALITY(not_equal, !=, ==)
MUTANTS_OPERATION(plus, +, -)
MUTANTS_OPERATION(minus, -, +)
MUTANTS_OPERATION(times, *, +)
MUTANTS_OPERATION(divided, /, *)
MUTANTS_OPERATION(modulo, %, /)
MUTANTS_OPERATION(bit_and, &, |)
MUTANTS_OPERATION(bit_or, |, &)
MUTANTS_OPERATION(bit_xor, ^, |)
MUTANTS_OPERATION(left, <<, >>)
MUTANTS_OPERATION(right, >>, <<)
MUTANTS_ASSIGNMENT(add_to, +=, -=)
MUTANTS_ASSIGNMENT(take_from, -=, +=)
MUTANTS_ASSIGNMENT(multiply, *=, +=)
MUTANTS_ASSIGNMENT(divide, /=, *=)
MUTANTS_ASSIGNMENT(and_to, &=, |=)
MUTANTS_ASSIGNMENT(or_to, |=, &=)
MUTANTS_ASSIGNMENT(xor_to, ^=, |=)
MUTANTS_ASSIGNMENT(shift_left, <<=, >>=)
MUTANTS_ASSIGNMENT(shift_right, >>=, <<=)

template <class T>
constexpr T &increment(int number, T &value) {
    return is(number) ? --value : ++value;
}

template <class T>
constexpr T &decrement(int number, T &value) {
    return is(number) ? ++value : --value;
}

template <class T>
constexpr T increment_after(int number, T &value) {
    return is(number) ? value-- : value++;
}

template <class T>
constexpr T decrement_after(int number, T &value) {
    return is(number) ? value++ : value--;
}

template <class T>
constexpr T complement(int number, T value) {
    return pick<T>(number, ~value, value);
}

template <class T>
constexpr T negative(int number, T value) {
    return pick<T>(number, -value, value);
}

}  // namespace mutants

#endif
