// The members of a record by their names: once for all who read, write or show one.
#pragma once

#include <concepts>
#include <type_traits>

// Applies a macro to each of its further arguments. Each level of the expansion scans its argument four
// times, so that lists may have up to 256 members.
#define WINHOST_EACH(macro, ...) __VA_OPT__(WINHOST_EXPAND(WINHOST_FIRST(macro, __VA_ARGS__)))
#define WINHOST_FIRST(macro, first, ...) \
    macro(first) __VA_OPT__(WINHOST_AGAIN WINHOST_PARENTHESES(macro, __VA_ARGS__))
#define WINHOST_AGAIN() WINHOST_FIRST
#define WINHOST_PARENTHESES ()
#define WINHOST_EXPAND(...) WINHOST_SCAN(WINHOST_SCAN(WINHOST_SCAN(WINHOST_SCAN(__VA_ARGS__))))
#define WINHOST_SCAN(...) WINHOST_SCAN2(WINHOST_SCAN2(WINHOST_SCAN2(WINHOST_SCAN2(__VA_ARGS__))))
#define WINHOST_SCAN2(...) WINHOST_SCAN3(WINHOST_SCAN3(WINHOST_SCAN3(WINHOST_SCAN3(__VA_ARGS__))))
#define WINHOST_SCAN3(...) __VA_ARGS__

#define WINHOST_FIELD(member) visit(#member, record.member);
// For a struct, in its namespace: VisitFields(visit, record) calls visit("member", record.member) for each of
// these members, in this order.
#define WINHOST_FIELDS(Type, ...)                            \
    template <class Visitor, class Record>                   \
    requires std::same_as<std::remove_const_t<Record>, Type> \
    void VisitFields(Visitor& visit, Record& record) {       \
        WINHOST_EACH(WINHOST_FIELD, __VA_ARGS__)             \
    }
