(declare-const x Real)
(push 1)
