// A sort that tolerates comparisons that are not strict weak orderings.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

// Stays within the list and terminates for any comparison. std::sort guarantees neither if two elements each
// come before the other. Quadratic; lists here have tens of elements.
template <typename T, typename ComesBefore>
void InsertionSort(std::vector<T>& list, ComesBefore comesBefore) {
  for (std::size_t next = 1; next < list.size(); ++next) {
    T element = std::move(list[next]);
    std::size_t place = next;
    for (; place > 0 && comesBefore(element, list[place - 1]); --place) {
      list[place] = std::move(list[place - 1]);
    }
    list[place] = std::move(element);
  }
}
