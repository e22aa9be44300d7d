#pragma once

// The unstable sort of the Windows platform's C++ library (an introspective sort), rewritten so
// that MinGW builds order records exactly as the Windows builds of the parent process expect.
//
// This matters because FormatLess is not a strict weak order: records of different pixel
// formats, and records whose sizes cross, compare as neither less nor greater. For such a
// comparison every sort algorithm is free to give another order, and libstdc++'s std::sort does.
// Each step below is kept as the platform library takes it, down to which element is compared
// with which, since any difference can show in the output.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace DShow {
namespace PlatformSortSteps {

// Ranges up to this many elements are finished by insertion sort.
constexpr std::ptrdiff_t kInsertionSortMax = 32;
// Above this distance between the first and the last element, the pivot is a median of medians.
constexpr std::ptrdiff_t kNintherThreshold = 40;

template <class It, class Less>
void InsertionSort(It first, It last, Less less) {
    if (first == last) {
        return;
    }
    for (It next = first; ++next != last;) {
        auto value = std::move(*next);
        if (less(value, *first)) {
            // A new front element: everything before it moves up by one.
            std::move_backward(first, next, std::next(next));
            *first = std::move(value);
            continue;
        }
        // Walk back while the value is less than its predecessor. It is not less than *first,
        // so the walk stops at the front at the latest.
        It hole = next;
        for (It previous = hole; less(value, *--previous); hole = previous) {
            *hole = std::move(*previous);
        }
        *hole = std::move(value);
    }
}

// Sorts the three elements so that the median of them ends up in the middle position.
template <class It, class Less>
void MedianOfThree(It first, It middle, It last, Less less) {
    using std::swap;
    if (less(*middle, *first)) {
        swap(*middle, *first);
    }
    if (less(*last, *middle)) {
        swap(*last, *middle);
        if (less(*middle, *first)) {
            swap(*middle, *first);
        }
    }
}

// Moves a guess of the median to `middle`; `last` is the last element, not one past it.
template <class It, class Less>
void GuessMedian(It first, It middle, It last, Less less) {
    const std::ptrdiff_t distance = last - first;
    if (distance > kNintherThreshold) {
        // Tukey's ninther: the median of three medians of three.
        const std::ptrdiff_t step = (distance + 1) >> 3;
        const std::ptrdiff_t twoSteps = step << 1;
        MedianOfThree(first, first + step, first + twoSteps, less);
        MedianOfThree(middle - step, middle, middle + step, less);
        MedianOfThree(last - twoSteps, last - step, last, less);
        MedianOfThree(first + step, middle, last - step, less);
    } else {
        MedianOfThree(first, middle, last, less);
    }
}

// Three-way partition around the guessed median. Gives the block [first, second) of elements
// equivalent to the pivot (neither less nor greater); smaller ones end up before it, greater
// ones after it. The pivot compared with is whichever element currently heads the block.
template <class It, class Less>
std::pair<It, It> PartitionByMedianGuess(It first, It last, Less less) {
    using std::swap;
    It middle = first + ((last - first) >> 1);
    GuessMedian(first, middle, last - 1, less);

    It pivotFirst = middle;
    It pivotLast = middle + 1;
    // Grow the pivot block over equivalent neighbours on both sides.
    while (first < pivotFirst && !less(*(pivotFirst - 1), *pivotFirst) &&
           !less(*pivotFirst, *(pivotFirst - 1))) {
        --pivotFirst;
    }
    while (pivotLast < last && !less(*pivotLast, *pivotFirst) && !less(*pivotFirst, *pivotLast)) {
        ++pivotLast;
    }

    It greaterFirst = pivotLast;  // scans upward; [pivotLast, greaterFirst) are greater
    It lessLast = pivotFirst;     // scans downward; [lessLast, pivotFirst) are less
    for (;;) {
        for (; greaterFirst < last; ++greaterFirst) {
            if (less(*pivotFirst, *greaterFirst)) {
                continue;
            }
            if (less(*greaterFirst, *pivotFirst)) {
                break;
            }
            if (pivotLast != greaterFirst) {
                swap(*pivotLast, *greaterFirst);
            }
            ++pivotLast;
        }
        for (; first < lessLast; --lessLast) {
            const It previous = lessLast - 1;
            if (less(*previous, *pivotFirst)) {
                continue;
            }
            if (less(*pivotFirst, *previous)) {
                break;
            }
            if (--pivotFirst != previous) {
                swap(*pivotFirst, *previous);
            }
        }

        if (lessLast == first && greaterFirst == last) {
            return std::pair<It, It>(pivotFirst, pivotLast);
        }
        if (lessLast == first) {
            // No room below: rotate the pivot block one place up over the smaller element.
            if (pivotLast != greaterFirst) {
                swap(*pivotFirst, *pivotLast);
            }
            ++pivotLast;
            swap(*pivotFirst, *greaterFirst);
            ++pivotFirst;
            ++greaterFirst;
        } else if (greaterFirst == last) {
            // No room above: rotate the pivot block one place down over the greater element.
            if (--lessLast != --pivotFirst) {
                swap(*lessLast, *pivotFirst);
            }
            swap(*pivotFirst, *--pivotLast);
        } else {
            swap(*greaterFirst, *--lessLast);
            ++greaterFirst;
        }
    }
}

// Moves `value` up from `hole` towards `top` past every parent that is less than it.
template <class It, class T, class Less>
void PushHeapByIndex(It first, std::ptrdiff_t hole, std::ptrdiff_t top, T&& value, Less less) {
    for (std::ptrdiff_t parent = (hole - 1) >> 1; top < hole && less(*(first + parent), value);
         parent = (hole - 1) >> 1) {
        *(first + hole) = std::move(*(first + parent));
        hole = parent;
    }
    *(first + hole) = std::forward<T>(value);
}

// Moves the hole at `hole` down to a leaf along the larger children, then pushes `value` up.
template <class It, class T, class Less>
void PopHeapHoleByIndex(It first, std::ptrdiff_t hole, std::ptrdiff_t bottom, T&& value,
                        Less less) {
    const std::ptrdiff_t top = hole;
    std::ptrdiff_t child = hole;
    const std::ptrdiff_t lastParentWithTwoChildren = (bottom - 1) >> 1;
    while (child < lastParentWithTwoChildren) {
        child = 2 * child + 2;
        if (less(*(first + child), *(first + (child - 1)))) {
            --child;
        }
        *(first + hole) = std::move(*(first + child));
        hole = child;
    }
    if (child == lastParentWithTwoChildren && bottom % 2 == 0) {
        // A single child at the bottom.
        *(first + hole) = std::move(*(first + (bottom - 1)));
        hole = bottom - 1;
    }
    PushHeapByIndex(first, hole, top, std::forward<T>(value), less);
}

template <class It, class Less>
void MakeHeap(It first, It last, Less less) {
    const std::ptrdiff_t bottom = last - first;
    for (std::ptrdiff_t hole = bottom >> 1; hole > 0;) {
        --hole;
        auto value = std::move(*(first + hole));
        PopHeapHoleByIndex(first, hole, bottom, std::move(value), less);
    }
}

// Moves the top of the heap [first, last) to last - 1 and restores the heap before it.
template <class It, class Less>
void PopHeap(It first, It last, Less less) {
    if (last - first < 2) {
        return;
    }
    --last;
    auto value = std::move(*last);
    *last = std::move(*first);
    PopHeapHoleByIndex(first, std::ptrdiff_t{0}, last - first, std::move(value), less);
}

template <class It, class Less>
void SortHeap(It first, It last, Less less) {
    for (; last - first >= 2; --last) {
        PopHeap(first, last, less);
    }
}

// The introspective loop. `budget` bounds the partitioning passes: it shrinks to three quarters
// on every pass (about 1.5 log2(n) passes in all) and at zero the range goes to heap sort.
template <class It, class Less>
void SortWithBudget(It first, It last, std::ptrdiff_t budget, Less less) {
    for (;;) {
        if (last - first <= kInsertionSortMax) {
            InsertionSort(first, last, less);
            return;
        }
        if (budget <= 0) {
            MakeHeap(first, last, less);
            SortHeap(first, last, less);
            return;
        }
        const std::pair<It, It> pivot = PartitionByMedianGuess(first, last, less);
        budget = (budget >> 1) + (budget >> 2);
        // Recurse into the smaller side, loop on the larger one.
        if (pivot.first - first < last - pivot.second) {
            SortWithBudget(first, pivot.first, budget, less);
            first = pivot.second;
        } else {
            SortWithBudget(pivot.second, last, budget, less);
            last = pivot.first;
        }
    }
}

}  // namespace PlatformSortSteps

// Sorts [first, last) in the order that the platform library's std::sort gives.
template <class It, class Less>
void PlatformSort(It first, It last, Less less) {
    PlatformSortSteps::SortWithBudget(first, last, last - first, less);
}

}  // namespace DShow
