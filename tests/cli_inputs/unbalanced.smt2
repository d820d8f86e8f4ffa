(declare-const x Real)
(assert (= x 1)
