#ifndef VELMAR_TESTS_SAMEFIELDS_H
#define VELMAR_TESTS_SAMEFIELDS_H

#include "json/fieldtable.h"

#include <tuple>
#include <vector>

/*! Whether two values agree in all that has a key, at any depth. */
template<class Type> bool sameFields(const Type &left, const Type &right);

template<class Element>
bool sameFields(const std::vector<Element> &left, const std::vector<Element> &right)
{
    if (left.size() != right.size())
        return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (!sameFields(left[i], right[i]))
            return false;
    }
    return true;
}

template<class Type> bool sameFields(const Type &left, const Type &right)
{
    if constexpr (ajson::Internal::IsRecord<Type>::value) {
        return std::apply(
            [&](auto... member) { return (sameFields(left.*member, right.*member) && ...); },
            Type::Members);
    } else {
        return left == right;
    }
}

#endif // VELMAR_TESTS_SAMEFIELDS_H
