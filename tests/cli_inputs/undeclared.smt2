(declare-const x Real)
(assert (= x y))
