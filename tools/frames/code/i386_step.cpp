// What an i386 instruction does to the stack. Registers whose new value is not followed are forgotten.
#include "frames/code/i386_layout.h"
#include "frames/code/step.h"

namespace quarl::frames {
namespace {

constexpr unsigned kEax = 0, kEcx = 1, kEdx = 2, kEsp = StackState::kEsp, kEbp = StackState::kEbp;

class Execution {
 public:
  Execution(const CodeAt& code, const I386Instruction& in, StackState& state) : code_(code), in_(in), state_(state) {}

  Step step() {
    result_.size = in_.size;
    bool full = in_.map == 0 && (in_.opcode == 0x68 || (in_.opcode & 0xF8) == 0xB8 || in_.opcode == 0xC7);
    if (full) result_.number = static_cast<uint32_t>(in_.immediate);
    if (in_.size == 0) {
      result_.flow = Flow::kStop;
    } else if (in_.map == 0) {
      one_byte();
    } else if (in_.map == 1) {
      two_byte();
    } else if (in_.map == 2 && in_.opcode >= 0xF0) {
      state_.forget(in_.reg);
    } else if (in_.map == 3 && in_.opcode >= 0x14 && in_.opcode <= 0x17) {
      forget_operand(4);
    }
    return result_;
  }

 private:
  Value address() const {
    if (!in_.operand.base || in_.operand.index || in_.segment) return {};
    return state_.reg(*in_.operand.base).plus(in_.operand.displacement);
  }
  Value operand() const { return in_.operand.memory ? state_.load(address()) : state_.reg(in_.operand.reg); }
  void set_operand(Value value) {
    if (in_.operand.memory) {
      state_.store(address(), value);
    } else {
      state_.set(in_.operand.reg, value);
    }
  }
  // A byte register is a part of one of the first four.
  void forget_operand(unsigned size) {
    if (in_.operand.memory) return;
    state_.forget(size == 1 ? in_.operand.reg & 3 : in_.operand.reg);
  }
  void forget_reg(unsigned size) { state_.forget(size == 1 ? in_.reg & 3 : in_.reg); }
  unsigned size() const { return in_.opcode & 1 ? 4 : 1; }
  void move_stack(int32_t by) { state_.set(kEsp, state_.reg(kEsp).plus(by)); }

  void jump(Flow flow) {
    result_.flow = flow;
    result_.target = code_.address + in_.size + static_cast<uint32_t>(in_.immediate);
  }

  void arithmetic() {
    unsigned group = in_.opcode >> 3 & 7, form = in_.opcode & 7;
    if (group == 7 || form > 5) return;  // compares, and segment registers pushed and popped below
    if (form == 4 || form == 5) return state_.forget(kEax);
    bool to_reg = form >= 2;
    // xor of a register with itself is 0, and needs no more than to be forgotten.
    if (to_reg)
      forget_reg(size());
    else
      forget_operand(size());
  }

  void arithmetic_immediate() {
    if (in_.reg == 7) return;
    bool moves = in_.opcode != 0x80 && !in_.operand.memory && (in_.reg == 0 || in_.reg == 5);
    if (moves) return set_operand(operand().plus(in_.reg == 0 ? in_.immediate : negative(in_.immediate)));
    forget_operand(in_.opcode == 0x80 ? 1 : 4);
  }

  void moves() {
    switch (in_.opcode) {
      case 0x89:
        return set_operand(in_.word ? Value{} : state_.reg(in_.reg));
      case 0x8B:
        return state_.set(in_.reg, in_.word ? Value{} : operand());
      case 0x8D:
        return state_.set(in_.reg, address());
      case 0x88:
        return forget_operand(1);
      case 0x8A:
        return forget_reg(1);
      case 0x8F: {
        Value value = state_.pop();
        return set_operand(value);
      }
      case 0xC7:
        return set_operand(constant(in_.immediate));
      case 0xC6:
        return forget_operand(1);
      default:
        return forget_operand(4);
    }
  }

  void group_ff() {
    switch (in_.reg) {
      case 2:
        result_.flow = Flow::kCall;
        break;
      case 4:
        result_.flow = Flow::kJump;
        break;
      case 6:
        return state_.push(operand());
      case 3:
      case 5:
      case 7:
        result_.flow = Flow::kStop;
        return;
      default:
        return set_operand(in_.operand.memory ? Value{} : operand().plus(in_.reg == 0 ? 1 : -1));
    }
    bool plain = in_.operand.memory && !in_.operand.base && !in_.operand.index;
    if (plain && !in_.segment) result_.slot = static_cast<uint32_t>(in_.operand.displacement);
    if (result_.flow == Flow::kCall) state_.call(false);
  }

  void leave() {
    state_.set(kEsp, state_.reg(kEbp));
    Value value = state_.pop();
    state_.set(kEbp, value);
  }

  void one_byte() {
    uint8_t op = in_.opcode;
    if (op == 0x06 || op == 0x0E || op == 0x16 || op == 0x1E) return state_.push({});
    if (op == 0x07 || op == 0x17 || op == 0x1F) return static_cast<void>(state_.pop());
    if (op < 0x40) return arithmetic();
    if (op < 0x50) return state_.set(op & 7, state_.reg(op & 7).plus(op < 0x48 ? 1 : -1));
    if (op < 0x58) return state_.push(state_.reg(op & 7));
    if (op < 0x60) {
      Value value = state_.pop();
      return state_.set(op & 7, value);
    }
    if (op >= 0x70 && op < 0x80) return jump(Flow::kBranch);
    if (op >= 0xB0 && op < 0xB8) return state_.forget(op & 3);
    if (op >= 0xB8 && op < 0xC0) return state_.set(op & 7, constant(in_.immediate));
    if (op > 0x90 && op < 0x98) {
      Value value = state_.reg(op & 7);
      state_.set(op & 7, state_.reg(kEax));
      return state_.set(kEax, value);
    }
    if (op >= 0xE0 && op < 0xE4) return jump(Flow::kBranch);
    switch (op) {
      case 0x60:
        move_stack(-32);
        return;
      case 0x61:
        move_stack(32);
        for (unsigned n : {0, 1, 2, 3, 5, 6, 7}) state_.forget(n);
        return;
      case 0x68:
      case 0x6A:
        state_.push(constant(in_.immediate));
        return;
      case 0x69:
      case 0x6B:
        state_.forget(in_.reg);
        return;
      case 0x80:
      case 0x81:
      case 0x82:
      case 0x83:
        return arithmetic_immediate();
      case 0x84:
      case 0x85:
      case 0x90:
      case 0x8C:
      case 0xA8:
      case 0xA9:
        return;
      case 0x86:
        forget_reg(1);
        return forget_operand(1);
      case 0x87:
        forget_reg(4);
        return forget_operand(4);
      case 0x88:
      case 0x89:
      case 0x8A:
      case 0x8B:
      case 0x8D:
      case 0x8E:
      case 0x8F:
      case 0xC6:
      case 0xC7:
        return moves();
      case 0x98:
      case 0x9F:
      case 0xA0:
      case 0xA1:
      case 0xAC:
      case 0xAD:
      case 0xD4:
      case 0xD5:
      case 0xD6:
      case 0xD7:
      case 0xE4:
      case 0xE5:
      case 0xEC:
      case 0xED:
      case 0x27:
      case 0x2F:
        state_.forget(kEax);
        return;
      case 0x99:
        state_.forget(kEdx);
        return;
      case 0x9A:
      case 0xEA:
      case 0xCA:
      case 0xCB:
      case 0xCF:
      case 0xF4:
      case 0xCC:
      case 0xC8:
        result_.flow = Flow::kStop;
        return;
      case 0x9C:
        state_.push({});
        return;
      case 0x9D:
        move_stack(4);
        return;
      case 0xA4:
      case 0xA5:
      case 0xA6:
      case 0xA7:
      case 0xAA:
      case 0xAB:
      case 0xAE:
      case 0xAF:
        for (unsigned n : {kEcx, 6u, 7u}) state_.forget(n);
        return;
      case 0xC0:
      case 0xC1:
      case 0xD0:
      case 0xD1:
      case 0xD2:
      case 0xD3:
        return forget_operand(size());
      case 0xC2:
      case 0xC3:
        result_.flow = Flow::kReturn;
        state_.pop();
        return;
      case 0xC9:
        return leave();
      case 0xCD:
        result_.flow = in_.immediate == -0x80 ? Flow::kSystemCall : Flow::kStop;
        state_.forget(kEax);
        return;
      case 0xE8:
        return call();
      case 0xE9:
      case 0xEB:
        return jump(Flow::kJump);
      case 0xF6:
      case 0xF7:
        return group_f6();
      case 0xFE:
        return forget_operand(1);
      case 0xFF:
        return group_ff();
      case 0xDF:
        if (!in_.operand.memory) state_.forget(kEax);
        return;
      default:
        return;
    }
  }

  // A call of what follows it only asks where it is: what it pushed is popped.
  void call() {
    jump(Flow::kCall);
    if (in_.immediate == 0) {
      state_.push({});
      result_.flow = Flow::kNext;
      result_.target.reset();
    } else {
      state_.call(false);
    }
  }

  void group_f6() {
    if (in_.reg < 2) return;
    if (in_.reg < 4) return forget_operand(size());
    state_.forget(kEax);
    state_.forget(kEdx);
  }

  void two_byte() {
    uint8_t op = in_.opcode;
    if (op >= 0x80 && op < 0x90) return jump(Flow::kBranch);
    if (op >= 0x90 && op < 0xA0) return forget_operand(1);
    if ((op >= 0x40 && op < 0x50) || (op >= 0xC8 && op < 0xD0)) return state_.forget(op < 0x50 ? in_.reg : op & 7);
    switch (op) {
      case 0x0B:
      case 0xB9:
      case 0xFF:
        result_.flow = Flow::kStop;
        return;
      case 0x34:
        result_.flow = Flow::kSystemCall;
        return;  // sysenter
      case 0x31:
      case 0xA2:
      case 0x01:
        for (unsigned n : {0, 1, 2, 3}) state_.forget(n);
        return;
      case 0x2C:
      case 0x2D:
      case 0x50:
      case 0xD7:
      case 0xC5:
      case 0xAF:
      case 0xB6:
      case 0xB7:
      case 0xBC:
      case 0xBD:
      case 0xBE:
      case 0xBF:
      case 0xB8:
      case 0x02:
      case 0x03:
        state_.forget(in_.reg);
        return;
      case 0x7E:
      case 0xA4:
      case 0xA5:
      case 0xAB:
      case 0xAC:
      case 0xAD:
      case 0xB3:
      case 0xBB:
      case 0xBA:
        return forget_operand(4);
      case 0xB0:
      case 0xB1:
        state_.forget(kEax);
        return forget_operand(size());
      case 0xC0:
      case 0xC1:
        forget_reg(size());
        return forget_operand(size());
      case 0xC7:
        state_.forget(kEax);
        state_.forget(kEdx);
        return forget_operand(4);
      case 0xA0:
      case 0xA8:
        return state_.push({});
      case 0xA1:
      case 0xA9:
        return static_cast<void>(state_.pop());
      default:
        return;
    }
  }

  const CodeAt& code_;
  const I386Instruction& in_;
  StackState& state_;
  Step result_;
};

}  // namespace

Step step_i386(const CodeAt& code, StackState& state) {
  I386Instruction instruction = decode_i386(code.bytes);
  return Execution(code, instruction, state).step();
}

}  // namespace quarl::frames
