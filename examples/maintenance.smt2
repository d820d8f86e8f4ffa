; Three jobs on one machine that shuts down for maintenance from time 4 to 5: each job runs
; without interruption, after its release time, and either before the window or after it. When
; can all three be done?
(set-logic QF_LIA)
(set-option :produce-models true)
(declare-const a Int) ; start times; durations 3, 2 and 4, releases 0, 1 and 2
(declare-const b Int)
(declare-const c Int)
(declare-const done Int)
(define-fun apart ((s Int) (d Int) (t Int) (e Int)) Bool (or (<= (+ s d) t) (<= (+ t e) s)))
(define-fun clear ((s Int) (d Int)) Bool (or (<= (+ s d) 4) (>= s 5)))
(assert (and (>= a 0) (>= b 1) (>= c 2)))
(assert (and (apart a 3 b 2) (apart a 3 c 4) (apart b 2 c 4)))
(assert (and (clear a 3) (clear b 2) (clear c 4)))
(assert (and (<= (+ a 3) done) (<= (+ b 2) done) (<= (+ c 4) done)))
(push 1)
(assert (<= done 11))
(check-sat)
(get-value (a b c done))
(pop 1)
(assert (<= done 10))
(check-sat)
