// SPDX-License-Identifier: Apache-2.0
// Thread-safety annotations: read by clang's -Wthread-safety, nothing to other compilers.
#pragma once

#if defined(__clang__)
#define QUARL_ANNOTATION(x) __attribute__((x))
#else
#define QUARL_ANNOTATION(x)
#endif

#define CAPABILITY(name) QUARL_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY QUARL_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) QUARL_ANNOTATION(guarded_by(lock))
#define PT_GUARDED_BY(lock) QUARL_ANNOTATION(pt_guarded_by(lock))
#define REQUIRES(lock) QUARL_ANNOTATION(requires_capability(lock))
#define EXCLUDES(lock) QUARL_ANNOTATION(locks_excluded(lock))
#define ACQUIRE(...) QUARL_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) QUARL_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) QUARL_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(lock) QUARL_ANNOTATION(assert_capability(lock))
#define NO_THREAD_SAFETY_ANALYSIS QUARL_ANNOTATION(no_thread_safety_analysis)

// A function that leaves its frame before it returns what another one returns; elsewhere each call has its frame.
#if defined(__clang__)
#define QUARL_TAIL_CALLS
#else
#define QUARL_TAIL_CALLS __attribute__((optimize("optimize-sibling-calls")))
#endif

// Visible to the application; everything else is hidden.
#define QUARL_EXPORT __attribute__((visibility("default")))
