; A tiny scheduling problem with inequalities: the simplex tableau a solver would build.
(set-logic QF_LIA)
(declare-fun start1 () Int)
(declare-fun start2 () Int)
(declare-fun start3 () Int)
(declare-fun horizon () Int)
(define-fun end1 () Int (+ start1 3))
(assert (and (>= start1 0) (>= start2 0) (>= start3 0)))
(assert (<= end1 start2))                           ; job 1 before job 2
(assert (<= (+ start2 2) start3))                   ; job 2 before job 3
(assert (<= (* 2 (+ start3 4)) (* 2 horizon)))      ; same term as start3 - horizon
(assert (let ((gap (- start3 start1))) (and (>= gap 5) (<= gap 20))))
(assert (distinct start1 start2))
(check-sat)
