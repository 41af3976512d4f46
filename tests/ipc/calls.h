// SPDX-License-Identifier: MIT
//
// Calls to the C library that a test observes, shortens or makes fail, to reproduce
// what a real kernel does only when it is out of memory or in the middle of a race.
// The linker redirects them with --wrap, so this applies to calls from the code under
// test and from the test itself. Calls go through unchanged unless a test asks for
// something else, and again after each test.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>

namespace zan::test {

// The nth malloc or calloc from now fails.
void refuse_allocation(int n);

// The next sends accept at most these numbers of bytes, later ones everything.
void take_only(std::initializer_list<std::size_t> bytes);

// Calls of send() and of sendto() in this test so far.
int connected_sends_made();
int addressed_sends_made();

// setsockopt fails with ENOPROTOOPT for this option, as on an older kernel.
void refuse_option(int option);

// Called before each connect with its number, counted from 1 in each test.
void before_connect(std::function<void(int)> action);
int connects_made();

// Called once after the next unlink.
void after_unlink(std::function<void()> action);

} // namespace zan::test
