(set-logic QF_LRA)
(frobnicate x)
