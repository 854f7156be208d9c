-- The events of one day, in UTC; without a change, of yesterday. To be read in the folder that
-- tev-host consume writes, before one of the queries.
set variable day = strftime((now() at time zone 'UTC')::date - 1, '%Y-%m-%d');
create or replace view events as
  from read_parquet('**/*.parquet', hive_partitioning = true, union_by_name = true)
  where hour between getvariable('day') || 'T00' and getvariable('day') || 'T23';
