; Flow conservation in a small network: source s sends 10 units to sink t.
(set-logic QF_LRA)
(declare-const f_sa Real)
(declare-const f_sb Real)
(declare-const f_ab Real)
(declare-const f_at Real)
(declare-const f_bt Real)
(assert (= (+ f_sa f_sb) 10))            ; out of the source
(assert (= f_sa (+ f_ab f_at)))          ; node a
(assert (= (+ f_sb f_ab) f_bt))          ; node b
(assert (= (+ f_at f_bt) 10))            ; into the sink
(assert (= f_ab (/ f_sa 4)))             ; a routes a quarter through b
(check-sat)
(exit)
