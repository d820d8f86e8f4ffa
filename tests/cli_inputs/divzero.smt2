(declare-const x Real)
(assert (= x (/ 3 0)))
