// Registers that a called function must keep, and the control words of floating point, go on the stack that is left. A
// fibre's first frame has no caller: exceptions and whoever lists the calls stop there.
#include "time/fibre_switch.h"

#if RACK_HAS_FIBRES

#if defined(__x86_64__)

asm(R"(
.text
.p2align 4
.globl rack_switch_stack
.hidden rack_switch_stack
.type rack_switch_stack, @function
rack_switch_stack:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  subq $8, %rsp
  stmxcsr (%rsp)
  fnstcw 4(%rsp)
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  ldmxcsr (%rsp)
  fldcw 4(%rsp)
  addq $8, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
.size rack_switch_stack, .-rack_switch_stack

.globl rack_begin_fibre
.hidden rack_begin_fibre
.type rack_begin_fibre, @function
rack_begin_fibre:
  .cfi_startproc
  .cfi_undefined rip
  movq %r12, %rdi
  call *%r13
  ud2
  .cfi_endproc
.size rack_begin_fibre, .-rack_begin_fibre
)");

#elif defined(__i386__)

asm(R"(
.text
.p2align 4
.globl rack_switch_stack
.hidden rack_switch_stack
.type rack_switch_stack, @function
rack_switch_stack:
  movl 4(%esp), %eax
  movl 8(%esp), %edx
  pushl %ebp
  pushl %ebx
  pushl %esi
  pushl %edi
  subl $4, %esp
  fnstcw (%esp)
  movl %esp, (%eax)
  movl %edx, %esp
  fldcw (%esp)
  addl $4, %esp
  popl %edi
  popl %esi
  popl %ebx
  popl %ebp
  ret
.size rack_switch_stack, .-rack_switch_stack

.globl rack_begin_fibre
.hidden rack_begin_fibre
.type rack_begin_fibre, @function
rack_begin_fibre:
  .cfi_startproc
  .cfi_undefined eip
  subl $12, %esp
  pushl %esi
  call *%ebx
  ud2
  .cfi_endproc
.size rack_begin_fibre, .-rack_begin_fibre
)");

#elif defined(__aarch64__)

asm(R"(
.text
.p2align 4
.globl rack_switch_stack
.hidden rack_switch_stack
.type rack_switch_stack, %function
rack_switch_stack:
  sub sp, sp, #176
  stp x19, x20, [sp, #0]
  stp x21, x22, [sp, #16]
  stp x23, x24, [sp, #32]
  stp x25, x26, [sp, #48]
  stp x27, x28, [sp, #64]
  stp x29, x30, [sp, #80]
  stp d8, d9, [sp, #96]
  stp d10, d11, [sp, #112]
  stp d12, d13, [sp, #128]
  stp d14, d15, [sp, #144]
  mrs x9, fpcr
  str x9, [sp, #160]
  mov x9, sp
  str x9, [x0]
  mov sp, x1
  ldp x19, x20, [sp, #0]
  ldp x21, x22, [sp, #16]
  ldp x23, x24, [sp, #32]
  ldp x25, x26, [sp, #48]
  ldp x27, x28, [sp, #64]
  ldp x29, x30, [sp, #80]
  ldp d8, d9, [sp, #96]
  ldp d10, d11, [sp, #112]
  ldp d12, d13, [sp, #128]
  ldp d14, d15, [sp, #144]
  ldr x9, [sp, #160]
  msr fpcr, x9
  add sp, sp, #176
  ret
.size rack_switch_stack, .-rack_switch_stack

.globl rack_begin_fibre
.hidden rack_begin_fibre
.type rack_begin_fibre, %function
rack_begin_fibre:
  .cfi_startproc
  .cfi_undefined x30
  mov x0, x19
  blr x20
  brk #1
  .cfi_endproc
.size rack_begin_fibre, .-rack_begin_fibre
)");

#elif defined(__arm__)

#ifdef __thumb__
#define RACK_INSTRUCTIONS ".thumb\n"
#define RACK_FUNCTION ".thumb_func\n"
#else
#define RACK_INSTRUCTIONS ".arm\n"
#define RACK_FUNCTION ""
#endif
#ifdef __ARM_FP
#define RACK_KEEP_FLOATS "  vpush {d8-d15}\n  vmrs r2, fpscr\n"
#define RACK_TAKE_FLOATS "  vmsr fpscr, r2\n  vpop {d8-d15}\n"
#else
#define RACK_KEEP_FLOATS "  sub sp, sp, #64\n"
#define RACK_TAKE_FLOATS "  add sp, sp, #64\n"
#endif

asm(".syntax unified\n.text\n" RACK_INSTRUCTIONS R"(
.p2align 2
.globl rack_switch_stack
.hidden rack_switch_stack
.type rack_switch_stack, %function
)" RACK_FUNCTION R"(
rack_switch_stack:
  push {r4-r11, lr}
  sub sp, sp, #4
)" RACK_KEEP_FLOATS R"(
  push {r2, r3}
  str sp, [r0]
  mov sp, r1
  pop {r2, r3}
)" RACK_TAKE_FLOATS R"(
  add sp, sp, #4
  pop {r4-r11, pc}
.size rack_switch_stack, .-rack_switch_stack

.globl rack_begin_fibre
.hidden rack_begin_fibre
.type rack_begin_fibre, %function
)" RACK_FUNCTION R"(
rack_begin_fibre:
  .fnstart
  .cantunwind
  mov r0, r4
  blx r5
  udf #0
  .fnend
.size rack_begin_fibre, .-rack_begin_fibre
)");

#endif

namespace rack {

std::uintptr_t FloatControl() {
#if defined(__x86_64__)
  std::uint32_t words[2] = {};
  asm volatile("stmxcsr %0\n\tfnstcw %1" : "+m"(words[0]), "+m"(words[1]));
  return words[0] | static_cast<std::uintptr_t>(words[1]) << 32;
#elif defined(__i386__)
  std::uint32_t word = 0;
  asm volatile("fnstcw %0" : "+m"(word));
  return word;
#elif defined(__aarch64__)
  std::uintptr_t word = 0;
  asm volatile("mrs %0, fpcr" : "=r"(word));
  return word;
#elif defined(__ARM_FP)
  std::uintptr_t word = 0;
  asm volatile("vmrs %0, fpscr" : "=r"(word));
  return word;
#else
  return 0;
#endif
}

}  // namespace rack

#endif
