"""Scans many files by the workers of a Dask cluster.

    >>> import distributed, tavrik.cluster
    >>> tavrik.cluster.run(distributed.Client("scheduler:8786"), ["s3://bucket/files"], "/shared/results")

`python -m tavrik.cluster` does the same from a command line. Needs the packages distributed and fsspec, for Parquet
pyarrow: `pip install 'tavrik[cluster]'`.
"""
from ._folder import Folder
from ._jobs import Job, ParquetScanJob, ScanJob
from ._run import BYTES, FILES, Lost, Summary, run
from ._store_job import StoreJob

__all__ = ["BYTES", "FILES", "Folder", "Job", "Lost", "ParquetScanJob", "ScanJob", "StoreJob", "Summary", "run"]
