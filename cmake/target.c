// SPDX-License-Identifier: Apache-2.0
/* What the compiler makes code for, said in an error: no flag holds that back. target.cmake reads it. */
#if __SIZEOF_POINTER__ != 4
#error quarl target: wide;
#elif !defined(__linux__)
#error quarl target: no Linux;
#elif defined(__i386__)
#error quarl target: i686;
#elif !defined(__arm__)
#error quarl target: another processor than x86 and ARM;
#elif defined(__ARMEB__)
#error quarl target: big endian ARM;
#elif !defined(__ARM_EABI__)
#error quarl target: ARM without EABI;
#elif __ARM_ARCH < 5
#error quarl target: ARM before ARMv5;
#elif __ARM_ARCH_PROFILE == 'M'
#error quarl target: ARM without ARM state;
#elif defined(__ARM_PCS_VFP)
#error quarl target: armhf;
#else
#error quarl target: armel;
#endif
