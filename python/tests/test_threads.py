"""Fits on several Python threads run in parallel and give the serial results."""

import time
from concurrent.futures import ThreadPoolExecutor

import metrofit
import synthetic
from checks import assert_same_result

THREADS = 4
REPEATS = 3


def _jobs():
    jobs = []
    for generator in synthetic.ALL:
        truth = generator()
        jobs.append((truth.shape, truth.points, "precise"))
    # The compatible method runs the KFit functions (the torus through the extended circle
    # fit and its temporary point store), which must be as safe on threads.
    for generator in (synthetic.cylinder, synthetic.torus, synthetic.sphere, synthetic.paraboloid):
        truth = generator()
        jobs.append((truth.shape, truth.points, "compatible"))
    return jobs * REPEATS


def _fit(job):
    shape, points, method = job
    return metrofit.fit(shape, points, method=method)


def test_threads_give_the_serial_results():
    jobs = _jobs()
    start = time.perf_counter()
    serial = [_fit(job) for job in jobs]
    serial_time = time.perf_counter() - start

    start = time.perf_counter()
    with ThreadPoolExecutor(max_workers=THREADS) as pool:
        threaded = list(pool.map(_fit, jobs))
    threaded_time = time.perf_counter() - start

    assert len(threaded) == len(serial)
    for a, b in zip(serial, threaded):
        assert_same_result(a, b)
    # Information only: the speed-up depends on the machine's free cores.
    print("serial %.3f s, %d threads %.3f s" % (serial_time, THREADS, threaded_time))


def test_errors_on_threads_stay_on_their_thread():
    good = synthetic.sphere().points

    def run(index):
        if index % 2:
            try:
                metrofit.fit("sphere", good[:2])
            except ValueError:
                return "error"
            return "no error"
        return metrofit.fit("sphere", good).status

    with ThreadPoolExecutor(max_workers=THREADS) as pool:
        outcomes = list(pool.map(run, range(16)))
    assert outcomes == ["ok", "error"] * 8
