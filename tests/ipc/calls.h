// SPDX-License-Identifier: MIT
//
// Calls that a test sees, cuts short or refuses on their way to the C library: for
// what a real kernel does only out of memory or in the middle of a race.  Linked
// with --wrap, so only calls from the code under test and the test itself take this
// way, and they go through unchanged unless a test says otherwise.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <vector>

namespace zan::test {

// The how-many-th malloc or calloc from now finds no memory.
void refuse_allocation(int which);

// The next sends take no more than so many bytes each, the later ones everything.
void take_only(std::initializer_list<std::size_t> bytes);

// Calls of send() and of sendto() so far.
int connected_sends_made();
int addressed_sends_made();

// Every setsockopt of this option is refused as unknown, as an older kernel does.
void refuse_option(int option);

// Called before each connect with its number, from 1.
void before_connect(std::function<void(int)> action);
int connects_made();

// The pauses that this thread has made.
std::vector<std::chrono::milliseconds> pauses_made();

// Called once after the next unlink.
void after_unlink(std::function<void()> action);

} // namespace zan::test
